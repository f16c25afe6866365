// A zip archive's table of contents, checked as a whole before anything of it is used.
#pragma once

#include "archiver/decoders.h"
#include "archiver/source_file.h"
#include "archiver/zip_crypto.h"
#include "archiver/zip_format.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace archiver {

// Kept small: archives hold millions.
struct ZipEntry {
    enum class Kind : std::uint8_t { file, folder, link };
    enum class Cipher : std::uint8_t { none, zipCrypto, winZipAes };

    std::uint64_t content = 0; // where it begins in the source, in bytes
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
    std::int64_t modified = 0; // units of 100 ns since 1970 (UTC)
    std::uint64_t pathStart = 0;
    std::uint32_t pathLength = 0;
    std::uint32_t crc = 0;
    zip::Method method = zip::Method::store;
    std::uint16_t mode = 0; // permission bits without set-id and sticky, less no umask
    Kind kind = Kind::file;
    Cipher cipher = Cipher::none;
    AesStrength strength = AesStrength::bits256;
    bool hasCrc = true;        // else (AE-2) the cipher's MAC stands in for it
    bool hasEndMarker = false; // of LZMA
    std::uint8_t check = 0;    // what the last byte of ZipCrypto's header must be

    bool isEncrypted() const { return cipher != Cipher::none; }
};

class ZipArchive {
public:
    // Reads the central directory, whose word counts, and compares every local header with it. No two entries have a
    // path or a byte in common, none lies below a file or a link, and none leads out of the destination. `source` must
    // outlive the archive. Failures: damaged; unsupported for methods that this build doesn't know.
    explicit ZipArchive(const SourceFile& source);

    const SourceFile& source() const { return source_; }

    // By path: a folder right before what is in it. Not all folders need have entries.
    const std::vector<ZipEntry>& entries() const { return entries_; }

    // Below the destination: "a/b", in UTF-8, never empty.
    std::string_view path(const ZipEntry& entry) const
    {
        return std::string_view(paths_).substr(entry.pathStart, entry.pathLength);
    }

private:
    class Loader;

    void sortAndCompare();

    const SourceFile& source_;
    std::vector<ZipEntry> entries_;
    std::string paths_; // one after the other
};

// For messages: the path in quotes, cut where it is long.
std::string quoted(std::string_view path);

} // namespace archiver
