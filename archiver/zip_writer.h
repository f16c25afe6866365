// Lays out zip archives: the header of each entry, the central directory, the end records (zip_format.h).
#pragma once

#include "archiver/result_file.h"
#include "archiver/zip_crypto.h"
#include "archiver/zip_format.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace archiver::zip {

// An item as an archive holds it. Encryption is WinZip's AE-2 with AES-256, which stores no checksum.
struct Entry {
    std::string name; // bytes, without a leading "/"; a folder's ends in "/"
    mode_t mode = 0;  // as stat(2) has it
    std::time_t modified = 0;
    Method method = Method::store; // of the content
    bool isEncrypted = false;
    bool mayBeLarge = false; // sizes of 4 GiB and more may come out: zip64
    std::uint32_t crc = 0;
    std::uint64_t size = 0;           // of the content
    std::uint64_t compressedSize = 0; // as stored, with what encryption adds
    std::uint64_t offset = 0;         // of its header in the archive
};

// The strength of all encryption that is written.
inline constexpr AesStrength writtenStrength = AesStrength::bits256;

// Appends the header that precedes the entry's content. Its length depends on neither crc nor sizes, so that they can
// be filled in later by writing it again. Failures: unusableSource, for a name of more than 65,535 bytes.
void appendLocalHeader(const Entry& entry, std::vector<std::byte>& out);

// What is known of all entries, in the form in which it is written in the end: about 60 bytes and a name for each.
class CentralDirectory {
public:
    void add(const Entry& entry);

    // Appends it to the archive, with the end records.
    void write(ResultFile& archive) const;

private:
    std::vector<std::vector<std::byte>> chunks_; // so that no memory is copied as it grows
    std::uint64_t entries_ = 0;
};

} // namespace archiver::zip
