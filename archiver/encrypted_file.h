// One file, encrypted under a password: the format of docs/encrypted-files.md.
#pragma once

#include "archiver/protocol.h"

namespace archiver {

// Writes an encrypted copy of the source under the destination's name.
void encryptFile(const Job& job);

// Writes a decrypted one. Failures: damaged for a file of another kind and for one that was changed, wrongPassword for
// nothing but that.
void decryptFile(const Job& job);

} // namespace archiver
