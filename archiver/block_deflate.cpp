// A block is deflated by itself, with the 32 KiB before it as dictionary, so that matches reach back across its start.
// A sync flush ends it at a byte's boundary: blocks laid behind one another are one stream.
//
// Content that won't shrink takes deflate longest. So some of it is tried first; when that doesn't shrink, the block is
// written as stored blocks (RFC 1951, 3.2.4), 5 bytes longer for every 64 KiB.
#include "archiver/block_deflate.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <new>
#include <stdexcept>

namespace archiver {

namespace {

// Half the time of zlib's default, for archives 3 % larger.
constexpr int usualLevel = 3;
constexpr int trialLevel = 1;

Bytef* octets(std::span<const std::byte> bytes)
{
    // zlib's interface lacks const where it only reads.
    return const_cast<Bytef*>(reinterpret_cast<const Bytef*>(bytes.data()));
}

class Stream {
public:
    explicit Stream(int level)
    {
        constexpr int rawStream = -15; // no header of zlib's; a window of 32 KiB
        constexpr int usualMemory = 8;
        if (deflateInit2(&stream_, level, Z_DEFLATED, rawStream, usualMemory, Z_DEFAULT_STRATEGY) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~Stream() { deflateEnd(&stream_); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    void deflate(std::span<const std::byte> dictionary, std::span<const std::byte> block, int flush,
                 std::vector<std::byte>& out)
    {
        const std::size_t start = out.size();
        deflateReset(&stream_);
        // Room for the flush's empty block as well.
        out.resize(start + deflateBound(&stream_, block.size()) + 16);
        if (!dictionary.empty()) {
            deflateSetDictionary(&stream_, octets(dictionary), static_cast<uInt>(dictionary.size()));
        }
        stream_.next_in = octets(block);
        stream_.avail_in = static_cast<uInt>(block.size());
        stream_.next_out = octets(std::span(out).subspan(start));
        stream_.avail_out = static_cast<uInt>(out.size() - start);
        const int result = ::deflate(&stream_, flush);
        if (result != (flush == Z_FINISH ? Z_STREAM_END : Z_OK) || stream_.avail_in != 0 || stream_.avail_out == 0) {
            throw std::runtime_error("zlib failed");
        }
        out.resize(out.size() - stream_.avail_out);
    }

private:
    z_stream stream_{};
};

void store(std::span<const std::byte> block, bool isLast, std::vector<std::byte>& out)
{
    constexpr std::size_t most = 0xffff;
    do {
        const std::size_t size = std::min(block.size(), most);
        const auto low = static_cast<std::byte>(size & 0xff);
        const auto high = static_cast<std::byte>(size >> 8);
        const std::byte isFinal{isLast && size == block.size()};
        for (const std::byte value : {isFinal, low, high, ~low, ~high}) {
            out.push_back(value);
        }
        out.insert(out.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(size));
        block = block.subspan(size);
    } while (!block.empty());
}

} // namespace

struct BlockDeflater::State {
    Stream usual{usualLevel};
    Stream trial{trialLevel};
    std::vector<std::byte> sample;
    std::vector<std::byte> tried;
};

BlockDeflater::BlockDeflater() : state_(std::make_unique<State>()) {}
BlockDeflater::~BlockDeflater() = default;

bool BlockDeflater::isDense(std::span<const std::byte> sample)
{
    constexpr std::size_t leastGain = 64; // one byte in so many
    state_->tried.clear();
    state_->trial.deflate({}, sample, Z_FINISH, state_->tried);
    return state_->tried.size() > sample.size() - sample.size() / leastGain;
}

void BlockDeflater::deflate(std::span<const std::byte> before, std::span<const std::byte> block, bool isLast,
                            std::vector<std::byte>& out)
{
    // From every sixteenth of a larger block, a sixteenth of that.
    constexpr std::size_t pieces = 16;
    constexpr std::size_t leastTried = std::size_t{64} * 1024;
    if (block.size() >= leastTried) {
        const std::size_t step = block.size() / pieces;
        state_->sample.clear();
        for (std::size_t piece = 0; piece < pieces; ++piece) {
            const auto from = block.begin() + static_cast<std::ptrdiff_t>(piece * step);
            state_->sample.insert(state_->sample.end(), from, from + static_cast<std::ptrdiff_t>(step / pieces));
        }
        if (isDense(state_->sample)) {
            store(block, isLast, out);
            return;
        }
    }
    state_->usual.deflate(before, block, isLast ? Z_FINISH : Z_SYNC_FLUSH, out);
}

} // namespace archiver
