// Where plug-ins aren't ELF files.
#include "host/check/binary.h"

namespace fmxhost::check {

bool canReadBinaries()
{
    return false;
}

Binary readBinary(const std::filesystem::path&)
{
    throw BinaryError("it isn't known how to read it");
}

} // namespace fmxhost::check
