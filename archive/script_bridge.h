// The bridge to the archive script, the bundle's resource "ZipFuncs.sh": each routine hands it one job through the
// shell, as one quoted argument "verb|field|field|…", and waits for it.
//
// Paths are UTF-16 as typed, their folders made absolute (path_parts.h). Nothing in a path or password is escaped: a
// single quote or a "|" in it changes the command. Passwords travel on the script's command line.
//
// Each routine blocks for at least one second. What the script writes to standard output is lost. The answers, and
// what they mean: routine.h.
//
// Nothing depends on how the host treats SIGCHLD (see Status).
#pragma once

#include "archive/routine.h"

namespace archive {

// Compress a file, or a folder with all that is in it, into the archive `destination`.
Status ZipAFile(PathView source, PathView destination, platform::Bundle bundle);
Status ZipAFolder(PathView source, PathView destination, platform::Bundle bundle);

// Expands an archive into the folder part of `destination`; beside the archive when that is empty or "/".
Status UnzipAFile(PathView source, PathView destination, platform::Bundle bundle);

// The same with a password.
Status ZipAndEncrypt(PathView source, PathView destination, std::u16string_view password, platform::Bundle bundle);
Status ZipAndEncryptFolder(PathView source, PathView destination, std::u16string_view password,
                           platform::Bundle bundle);
Status UnzipAndDecrypt(PathView source, PathView destination, std::u16string_view password, platform::Bundle bundle);

// Write an encrypted or a decrypted copy of a file.
Status EncryptTheFile(PathView source, PathView destination, std::u16string_view password, platform::Bundle bundle);
Status DecryptTheFile(PathView source, PathView destination, std::u16string_view password, platform::Bundle bundle);

} // namespace archive
