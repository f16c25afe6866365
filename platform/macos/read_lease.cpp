// A Mac has no leases.

#include "platform/posix/read_lease.h"

namespace platform::posix {

ReadLease::ReadLease(int file) : file_(file) {}

ReadLease::~ReadLease() = default;

bool renamingCopies(int)
{
    return false;
}

} // namespace platform::posix
