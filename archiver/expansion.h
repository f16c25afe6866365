// The verbs unzip and unzipdecrypt.
#pragma once

#include "archiver/protocol.h"

namespace archiver {

// Expands the archive into the destination, which is made where it is missing: all that is in it, or nothing. Folders
// that are there already are merged with the archive's, files and links are replaced; a link isn't taken for what it
// leads to. Failures: unusableSource; damaged; unsupported; passwordNeeded; wrongZipPassword; unusableDestination, also
// for what is in the way; notWritten.
void expand(const Job& job);

} // namespace archiver
