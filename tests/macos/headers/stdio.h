// A stand-in: README.md. rename(2), which Apple declares here.
#include_next <stdio.h>

#ifndef RENAME_EXCL
#define RENAME_EXCL 0x00000004
extern "C" int renamex_np(const char*, const char*, unsigned int);
#endif
