// A Mac has no leases.

#include "platform/posix/read_lease.h"

namespace platform::posix {

ReadLease::ReadLease(int) {}

ReadLease::~ReadLease()
{
    static_cast<void>(leased_); // clang warns of a member that nothing uses
}

bool renamingCopies(int)
{
    return false;
}

} // namespace platform::posix
