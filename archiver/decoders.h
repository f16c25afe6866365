// The compression methods that entries of zip archives have.
#pragma once

#include "archiver/failure.h"
#include "archiver/zip_format.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace archiver {

// Returns what comes next of the compressed content, empty at its end. Valid until the next call.
using NextPiece = std::function<std::span<const std::byte>()>;

// Takes what comes next of the decoded content; may throw to stop the decoding.
using TakePiece = std::function<void(std::span<const std::byte>)>;

// Fails (unsupported) for a method that this build doesn't know. `name`: the entry's, for the message.
void requireDecoder(zip::Method method, const std::string& name);

struct Encoding {
    zip::Method method = zip::Method::store;
    bool hasEndMarker = false; // of LZMA: Flag::endMarker
    std::uint64_t size = 0;    // as announced, in bytes; what is decoded may still be more or less
};

// What decode() throws.
struct UndecodableContent {
    Exit exit = Exit::damaged; // also when the compressed content goes on behind its end
    const char* what = "is damaged";
};

// Decodes all there is. Throws UndecodableContent, and what `next` and `take` throw.
void decode(const Encoding& encoding, const NextPiece& next, const TakePiece& take);

// Of decode(): Deflate64, a Deflate with a window of 64 KiB and matches as long (APPNOTE.TXT 5.6).
void decodeDeflate64(const Encoding&, const NextPiece& next, const TakePiece& take);

} // namespace archiver
