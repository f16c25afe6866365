// A stand-in: README.md.
#include_next <unistd.h>

#ifndef SYNC_VOLUME_FULLSYNC
#define SYNC_VOLUME_FULLSYNC 0x01
#define SYNC_VOLUME_WAIT 0x02
extern "C" int sync_volume_np(const char*, int);
#endif
