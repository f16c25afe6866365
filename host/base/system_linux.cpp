#include "host/base/system.h"

namespace fmxhost {

PluginFile::PluginFile(const std::filesystem::path& file) : library_(file) {}

std::filesystem::path executableFile()
{
    return "/proc/self/exe"; // proc(5): also when the file has been replaced meanwhile
}

} // namespace fmxhost
