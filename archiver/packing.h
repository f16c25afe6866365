// The verbs zip and zipencrypt.
#pragma once

#include "archiver/protocol.h"

namespace archiver {

// Packs a file, or a folder with all that is in it, into a zip archive; with the job's password, if it has one, by
// WinZip's AES-256. The source itself may be a link; no other is followed. Failures: unusableSource for what can't be
// read or packed, those of ResultFile. What vanishes while its folder is packed is left out.
void pack(const Job& job);

} // namespace archiver
