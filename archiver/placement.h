// How what was expanded gets from a work folder into its place: whole or not at all.
#pragma once

#include "archiver/zip_reader.h"

#include <sys/types.h>

#include <functional>
#include <string>

namespace archiver {

struct Expansion {
    int tree;            // the open folder that holds what was expanded, below `missing`
    int kept;            // an empty folder beside it, for what is replaced
    int destination;     // open, on the same file system
    std::string missing; // the path of the folders that the destination lacks; else empty
    mode_t mask;         // the caller's umask
};

// Puts everything into place, onto the disk, with folders' modes that lock their owner out last. When something can't
// be put, everything goes back; `keep` is called when some of it can't, so that the work folder holds its only copy.
// Failures: unusableDestination, notWritten.
void putIntoPlace(const ZipArchive& archive, const Expansion& expansion, const std::function<void()>& keep);

// When the entry was modified.
timespec modificationTime(const ZipEntry& entry);

} // namespace archiver
