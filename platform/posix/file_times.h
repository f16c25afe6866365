// The times in what stat(2) returns, which macOS calls by other names.
#pragma once

#include <sys/stat.h>

#include <ctime>

namespace platform::posix {

#ifdef __APPLE__
inline const timespec& modificationTime(const struct stat& status)
{
    return status.st_mtimespec;
}
inline const timespec& changeTime(const struct stat& status)
{
    return status.st_ctimespec;
}
#else
inline const timespec& modificationTime(const struct stat& status)
{
    return status.st_mtim;
}
inline const timespec& changeTime(const struct stat& status)
{
    return status.st_ctim;
}
#endif

inline bool areEqual(const timespec& one, const timespec& other)
{
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

} // namespace platform::posix
