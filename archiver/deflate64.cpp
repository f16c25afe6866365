// Deflate (RFC 1951) but for three things: distance codes 30 and 31, length code 285 with 16 extra bits, and the window
// of 64 KiB that these need. Output grows in a ring as large as the window, which is handed on whenever it is full: a
// distance of 64 KiB is then the very byte that is about to be replaced.
//
// Each alphabet has one table, indexed by as many bits as its longest code has: the symbol and the code's length.

#include "archiver/decoders.h"

#include <algorithm>
#include <array>
#include <vector>

namespace archiver {

namespace {

void require(bool isSound)
{
    if (!isSound) {
        throw UndecodableContent{};
    }
}

class BitReader {
public:
    explicit BitReader(const NextPiece& next) : next_(next) {}

    // The next bits, 16 at most, the first one lowest, which aren't taken yet. Behind the end come zeros.
    unsigned peek(unsigned count)
    {
        for (; available_ < count; available_ += 8) {
            if (piece_.empty() && padding_ == 0) {
                piece_ = next_();
            }
            if (piece_.empty()) {
                padding_ += 8;
            } else {
                bits_ |= std::to_integer<std::uint32_t>(piece_.front()) << available_;
                piece_ = piece_.subspan(1);
            }
        }
        return bits_ & ((1U << count) - 1);
    }

    void drop(unsigned count)
    {
        bits_ >>= count;
        available_ -= count;
        require(available_ >= padding_); // else it ends early
    }

    unsigned take(unsigned count)
    {
        const unsigned bits = peek(count);
        drop(count);
        return bits;
    }

    void dropToByte() { drop(available_ % 8); }

    bool isAtEnd()
    {
        dropToByte();
        peek(8);
        return available_ == padding_;
    }

private:
    const NextPiece& next_;
    std::span<const std::byte> piece_;
    std::uint32_t bits_ = 0;
    unsigned available_ = 0; // bits, padding included
    unsigned padding_ = 0;
};

using Lengths = std::vector<std::uint8_t>; // of each symbol's code in bits; 0 for one that doesn't occur

class Alphabet {
public:
    // Codes are given out by length, then by symbol (RFC 1951, 3.2.2).
    explicit Alphabet(std::span<const std::uint8_t> lengths)
        : bits_(*std::max_element(lengths.begin(), lengths.end())), table_(std::size_t{1} << bits_)
    {
        unsigned code = 0;
        for (unsigned length = 1; length <= bits_; ++length, code <<= 1U) {
            for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
                if (lengths[symbol] == length) {
                    require(code < 1U << length); // else there are too many of them
                    add(static_cast<unsigned>(symbol), code++, length);
                }
            }
        }
    }

    unsigned read(BitReader& input) const
    {
        const unsigned entry = table_[input.peek(bits_)];
        require(entry != 0); // else no code begins so
        input.drop(entry % longerThanAny);
        return entry / longerThanAny;
    }

private:
    static constexpr unsigned longerThanAny = 16;

    // Codes come highest bit first.
    void add(unsigned symbol, unsigned code, unsigned length)
    {
        unsigned reversed = 0;
        for (unsigned bit = 0; bit < length; ++bit) {
            reversed |= (code >> bit & 1U) << (length - 1 - bit);
        }
        for (std::size_t index = reversed; index < table_.size(); index += std::size_t{1} << length) {
            table_[index] = static_cast<std::uint16_t>(symbol * longerThanAny + length);
        }
    }

    unsigned bits_;
    std::vector<std::uint16_t> table_;
};

class Window {
public:
    explicit Window(const TakePiece& take) : take_(take) {}

    void add(std::byte byte)
    {
        ring_[written_++ % size] = byte;
        if (written_ % size == 0) {
            take_(ring_);
        }
    }

    void repeat(std::size_t length, std::size_t distance)
    {
        require(distance <= written_); // else it lies before the start
        for (; length > 0; --length) {
            add(ring_[(written_ - distance) % size]);
        }
    }

    void finish() { take_(std::span(ring_).first(written_ % size)); }

private:
    static constexpr std::size_t size = std::size_t{64} << 10U;

    const TakePiece& take_;
    std::vector<std::byte> ring_ = std::vector<std::byte>(size);
    std::uint64_t written_ = 0;
};

void copyStored(BitReader& input, Window& window)
{
    input.dropToByte();
    const unsigned length = input.take(16);
    require(length == (~input.take(16) & 0xffffU));
    for (unsigned index = 0; index < length; ++index) {
        window.add(static_cast<std::byte>(input.take(8)));
    }
}

// What a code of a length or distance stands for, with its extra bits (RFC 1951, 3.2.5): from twice as many codes as
// are in a group on, each group's codes have one bit more than those of the group before.
std::size_t readValue(BitReader& input, unsigned code, unsigned group)
{
    const unsigned bits = code < 2 * group ? 0 : code / group - 1;
    return (std::size_t{code - bits * group} << bits) + input.take(bits);
}

void decodeBlock(BitReader& input, Window& window, const Alphabet& literals, const Alphabet& distances)
{
    constexpr unsigned endOfBlock = 256, firstLength = 257, lastLength = 285;
    for (unsigned symbol = literals.read(input); symbol != endOfBlock; symbol = literals.read(input)) {
        if (symbol < endOfBlock) {
            window.add(static_cast<std::byte>(symbol));
            continue;
        }
        require(symbol <= lastLength);
        const std::size_t length = symbol == lastLength ? input.take(16) : readValue(input, symbol - firstLength, 4);
        window.repeat(3 + length, 1 + readValue(input, distances.read(input), 2));
    }
}

// Of all symbols of the first alphabet, then of the second, as one row (RFC 1951, 3.2.7).
Lengths readLengths(BitReader& input, std::size_t count)
{
    constexpr std::array<std::uint8_t, 19> order{16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    std::array<std::uint8_t, order.size()> codeLengths{};
    for (unsigned index = 0, codes = 4 + input.take(4); index < codes; ++index) {
        codeLengths[order[index]] = static_cast<std::uint8_t>(input.take(3));
    }
    const Alphabet alphabet(codeLengths);
    Lengths lengths;
    while (lengths.size() < count) {
        const unsigned symbol = alphabet.read(input);
        if (symbol < 16) {
            lengths.push_back(static_cast<std::uint8_t>(symbol));
        } else if (symbol > 16) {
            lengths.resize(lengths.size() + (symbol == 17 ? 3 + input.take(3) : 11 + input.take(7)));
        } else {
            require(!lengths.empty()); // else there is none to repeat
            lengths.resize(lengths.size() + 3 + input.take(2), lengths.back());
        }
    }
    require(lengths.size() == count);
    return lengths;
}

void decodeDynamic(BitReader& input, Window& window)
{
    const std::size_t literals = 257 + input.take(5);
    const std::size_t distances = 1 + input.take(5);
    const Lengths lengths = readLengths(input, literals + distances);
    const std::span all(lengths);
    decodeBlock(input, window, Alphabet(all.first(literals)), Alphabet(all.subspan(literals)));
}

void decodeFixed(BitReader& input, Window& window)
{
    Lengths literals(288, 8);
    std::fill_n(literals.begin() + 144, 112, std::uint8_t{9});
    std::fill_n(literals.begin() + 256, 24, std::uint8_t{7});
    decodeBlock(input, window, Alphabet(literals), Alphabet(Lengths(32, 5)));
}

} // namespace

void decodeDeflate64(const Encoding&, const NextPiece& next, const TakePiece& take)
{
    constexpr std::array<void (*)(BitReader&, Window&), 3> kinds{copyStored, decodeFixed, decodeDynamic};
    BitReader input(next);
    Window window(take);
    for (bool isLast = false; !isLast;) {
        isLast = input.take(1) != 0;
        const unsigned kind = input.take(2);
        require(kind < kinds.size());
        kinds[kind](input, window);
    }
    require(input.isAtEnd());
    window.finish();
}

} // namespace archiver
