// A stand-in: README.md. stat(2): the times by Apple's names.
#include_next <sys/stat.h>

#ifndef st_birthtimespec
#define st_atimespec st_atim
#define st_mtimespec st_mtim
#define st_birthtimespec st_ctim
#endif
