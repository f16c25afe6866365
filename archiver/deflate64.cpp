// Deflate (RFC 1951) but for three things: distance codes 30 and 31, length code 285 with 16 extra bits, and the window
// of 64 KiB that these need. Output grows in a ring as large as the window, which is handed on whenever it is full: a
// distance of 64 KiB is then the very byte that is about to be replaced.
//
// Each alphabet has one table, indexed by as many bits as its longest code has: the symbol and the code's length.

#include "archiver/decoders.h"

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

namespace archiver {

namespace {

[[noreturn]] void failDamaged()
{
    throw UndecodableContent{};
}

class BitReader {
public:
    explicit BitReader(const NextPiece& next) : next_(next) {}

    // The next bits, the first one lowest, which aren't taken yet. Behind the end come zeros.
    unsigned peek(unsigned count)
    {
        while (available_ < count) {
            fill();
        }
        return static_cast<unsigned>(bits_ & ((std::uint64_t{1} << count) - 1));
    }

    void drop(unsigned count)
    {
        bits_ >>= count;
        available_ -= count;
        if (available_ < padding_) {
            failDamaged(); // it ends early
        }
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
    void fill()
    {
        if (piece_.empty() && padding_ == 0) {
            piece_ = next_();
        }
        if (piece_.empty()) {
            padding_ += 8;
        } else {
            bits_ |= std::to_integer<std::uint64_t>(piece_.front()) << available_;
            piece_ = piece_.subspan(1);
        }
        available_ += 8;
    }

    const NextPiece& next_;
    std::span<const std::byte> piece_;
    std::uint64_t bits_ = 0;
    unsigned available_ = 0; // bits, padding included
    unsigned padding_ = 0;
};

class Alphabet {
public:
    // `lengths`: of each symbol's code in bits; 0 for one that doesn't occur.
    explicit Alphabet(std::span<const std::uint8_t> lengths)
    {
        std::array<unsigned, longest + 1> next{};
        for (const std::uint8_t length : lengths) {
            ++next[length];
            bits_ = std::max<unsigned>(bits_, length);
        }
        next[0] = 0;
        unsigned code = 0;
        for (unsigned length = 1; length <= longest; ++length) {
            const unsigned count = next[length];
            next[length] = code;
            code = (code + count) << 1U;
            if (code > 2U << length) {
                failDamaged(); // more codes than there are
            }
        }
        table_.resize(std::size_t{1} << bits_);
        for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
            if (const unsigned length = lengths[symbol]; length != 0) {
                add(static_cast<unsigned>(symbol), next[length]++, length);
            }
        }
    }

    unsigned read(BitReader& input) const
    {
        const unsigned entry = table_[input.peek(bits_)];
        if (entry == 0) {
            failDamaged(); // no code begins so
        }
        input.drop(entry & lengthMask);
        return entry >> lengthBits;
    }

private:
    static constexpr unsigned longest = 15;
    static constexpr unsigned lengthBits = 4;
    static constexpr unsigned lengthMask = (1U << lengthBits) - 1;

    // Codes come highest bit first.
    void add(unsigned symbol, unsigned code, unsigned length)
    {
        unsigned reversed = 0;
        for (unsigned bit = 0; bit < length; ++bit) {
            reversed |= (code >> bit & 1U) << (length - 1 - bit);
        }
        for (std::size_t index = reversed; index < table_.size(); index += std::size_t{1} << length) {
            table_[index] = static_cast<std::uint16_t>(symbol << lengthBits | length);
        }
    }

    unsigned bits_ = 0;
    std::vector<std::uint16_t> table_;
};

class Window {
public:
    explicit Window(const TakePiece& take) : take_(take) {}

    void add(std::byte byte)
    {
        (*ring_)[position_++] = byte;
        if (position_ == size) {
            take_(*ring_);
            position_ = 0;
            isFull_ = true;
        }
    }

    void repeat(std::size_t length, std::size_t distance)
    {
        if (distance > position_ && !isFull_) {
            failDamaged(); // before the start
        }
        for (; length > 0; --length) {
            add((*ring_)[(position_ + size - distance) % size]);
        }
    }

    void finish() { take_(std::span(*ring_).first(position_)); }

private:
    static constexpr std::size_t size = std::size_t{64} << 10U;

    const TakePiece& take_;
    std::unique_ptr<std::array<std::byte, size>> ring_ = std::make_unique<std::array<std::byte, size>>();
    std::size_t position_ = 0;
    bool isFull_ = false; // has been once
};

// What codes stand for: a base, and extra bits to add (RFC 1951, 3.2.5).
struct Range {
    std::size_t base;
    unsigned bits;
};

constexpr unsigned lengthCodes = 29;
constexpr unsigned distanceCodes = 32;

constexpr Range lengthRange(unsigned code)
{
    if (code == lengthCodes - 1) {
        return {3, 16};
    }
    const unsigned bits = code < 8 ? 0 : code / 4 - 1;
    return {3 + (code < 8 ? code : std::size_t{4 + code % 4} << bits), bits};
}

constexpr Range distanceRange(unsigned code)
{
    const unsigned bits = code < 4 ? 0 : code / 2 - 1;
    return {1 + (code < 4 ? code : std::size_t{2 + code % 2} << bits), bits};
}

constexpr unsigned endOfBlock = 256;

void copyStored(BitReader& input, Window& window)
{
    input.dropToByte();
    const unsigned length = input.take(16);
    if (length != (~input.take(16) & 0xffffU)) {
        failDamaged();
    }
    for (unsigned index = 0; index < length; ++index) {
        window.add(static_cast<std::byte>(input.take(8)));
    }
}

void decodeBlock(BitReader& input, Window& window, const Alphabet& literals, const Alphabet& distances)
{
    for (;;) {
        const unsigned symbol = literals.read(input);
        if (symbol < endOfBlock) {
            window.add(static_cast<std::byte>(symbol));
            continue;
        }
        if (symbol == endOfBlock) {
            return;
        }
        const unsigned code = symbol - endOfBlock - 1;
        if (code >= lengthCodes) {
            failDamaged();
        }
        const Range match = lengthRange(code);
        const std::size_t length = match.base + input.take(match.bits);
        const Range distance = distanceRange(distances.read(input));
        window.repeat(length, distance.base + input.take(distance.bits));
    }
}

void decodeFixed(BitReader& input, Window& window)
{
    std::array<std::uint8_t, 288> lengths{};
    std::fill(lengths.begin(), lengths.begin() + 144, std::uint8_t{8});
    std::fill(lengths.begin() + 144, lengths.begin() + 256, std::uint8_t{9});
    std::fill(lengths.begin() + 256, lengths.begin() + 280, std::uint8_t{7});
    std::fill(lengths.begin() + 280, lengths.end(), std::uint8_t{8});
    std::array<std::uint8_t, distanceCodes> distances{};
    distances.fill(5);
    decodeBlock(input, window, Alphabet(lengths), Alphabet(distances));
}

// The lengths of both alphabets' codes, as one row (RFC 1951, 3.2.7).
std::vector<std::uint8_t> readLengths(BitReader& input, std::size_t count, unsigned codes)
{
    constexpr std::array<std::uint8_t, 19> order{16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    std::array<std::uint8_t, order.size()> codeLengths{};
    for (unsigned index = 0; index < codes; ++index) {
        codeLengths[order[index]] = static_cast<std::uint8_t>(input.take(3));
    }
    const Alphabet alphabet(codeLengths);
    std::vector<std::uint8_t> lengths;
    while (lengths.size() < count) {
        const unsigned symbol = alphabet.read(input);
        if (symbol < 16) {
            lengths.push_back(static_cast<std::uint8_t>(symbol));
        } else if (symbol == 16 && lengths.empty()) {
            failDamaged();
        } else if (symbol == 16) {
            lengths.insert(lengths.end(), 3 + input.take(2), std::uint8_t{lengths.back()});
        } else {
            lengths.insert(lengths.end(), symbol == 17 ? 3 + input.take(3) : 11 + input.take(7), std::uint8_t{0});
        }
    }
    if (lengths.size() > count) {
        failDamaged();
    }
    return lengths;
}

void decodeDynamic(BitReader& input, Window& window)
{
    const std::size_t literals = 257 + input.take(5);
    const std::size_t distances = 1 + input.take(5);
    const unsigned codes = 4 + input.take(4);
    const std::vector<std::uint8_t> lengths = readLengths(input, literals + distances, codes);
    const std::span<const std::uint8_t> all(lengths);
    decodeBlock(input, window, Alphabet(all.first(literals)), Alphabet(all.subspan(literals)));
}

} // namespace

void decodeDeflate64(const NextPiece& next, const TakePiece& take)
{
    BitReader input(next);
    Window window(take);
    for (bool isLast = false; !isLast;) {
        isLast = input.take(1) != 0;
        switch (input.take(2)) {
        case 0:
            copyStored(input, window);
            break;
        case 1:
            decodeFixed(input, window);
            break;
        case 2:
            decodeDynamic(input, window);
            break;
        default:
            failDamaged();
        }
    }
    if (!input.isAtEnd()) {
        failDamaged();
    }
    window.finish();
}

} // namespace archiver
