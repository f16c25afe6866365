// getfsstat(2) of macOS, as far as platform/macos goes; nothing that is built over GNUstep includes this header.
#pragma once

#include <stdint.h>

struct statfs {
    uint32_t f_flags;
    char f_mntonname[1024];
};

#define MNT_LOCAL 0x00001000
#define MNT_DONTBROWSE 0x00100000
#define MNT_NOWAIT 2

extern "C" int getfsstat(struct statfs* list, int size, int mode);
