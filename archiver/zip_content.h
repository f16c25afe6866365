// What entries of a zip archive hold: decrypted, decoded, and compared with what the archive says of it.
#pragma once

#include "archiver/decoders.h"
#include "archiver/failure.h"
#include "archiver/zip_reader.h"

#include <string_view>

namespace archiver {

// Hands the entry's content to `take`, piece by piece and never more than announced; only when it returns is that known
// to be what was packed. Several threads may read entries at once. Failures: damaged; wrongZipPassword for what looks
// like it, of which failAsJudged() knows more; unsupported; those of `take`.
void readContent(const ZipArchive& archive, const ZipEntry& entry, std::string_view password, const TakePiece& take);

// A password that is given means something: there are encrypted entries, and what has content is. Without one (empty)
// nothing may be encrypted. Failures: damaged, passwordNeeded; wrongZipPassword where that shows at once.
void requireCiphers(const ZipArchive& archive, std::string_view password);

// Throws the failure of an entry again, as damaged or wrongZipPassword, whichever it is when the other entries are
// looked at.
//
// A password that opens an entry is right, so something is damaged; of small ones, what is stored to tell of a wrong
// password, too. When it opens none, that decides. WinZip's AES has two bytes for it, which one wrong password in
// 65,536 passes: when they fit in more than half of the entries, it is damage. ZipCrypto has one byte, which is one in
// 256: a password that opens nothing is wrong. Where the only entry is damaged, nothing could tell that apart.
[[noreturn]] void failAsJudged(const ZipArchive& archive, std::string_view password, const Failure& failure);

} // namespace archiver
