#include "archiver/failure.h"

#include <cerrno>
#include <cstring>

namespace archiver {

void failWriting(const std::string& what, int error)
{
    const std::string cause = what + ": " + std::strerror(error);
    switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
    case EIO:
    case EROFS:
        fail(Exit::notWritten, cause);
    default:
        fail(Exit::unusableDestination, cause);
    }
}

} // namespace archiver
