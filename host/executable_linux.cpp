#include "host/executable.h"

namespace fmxhost {

std::filesystem::path executableFile()
{
    return "/proc/self/exe"; // proc(5): also when the file has been replaced meanwhile
}

} // namespace fmxhost
