// Deflate (RFC 1951) in blocks that don't wait for one another.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace archiver {

// How far back deflated data can refer.
inline constexpr std::size_t deflateWindow = std::size_t{32} * 1024;

// Compresses one block at a time. Thread rule: one value, one thread.
class BlockDeflater {
public:
    BlockDeflater();
    ~BlockDeflater();
    BlockDeflater(const BlockDeflater&) = delete;
    BlockDeflater& operator=(const BlockDeflater&) = delete;

    // Appends the block's part of the stream to `out`, in whole bytes. `before`: what precedes the block, of which the
    // last deflateWindow bytes are used; empty for the first one. `isLast` ends the stream.
    void deflate(std::span<const std::byte> before, std::span<const std::byte> block, bool isLast,
                 std::vector<std::byte>& out);

    // Whether content looks as if it can't be compressed: compressed or encrypted already. Looks at `sample`, which
    // should come from all over it.
    bool isDense(std::span<const std::byte> sample);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace archiver
