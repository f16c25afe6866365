#include "host/plugin_file.h"

namespace fmxhost {

PluginFile::PluginFile(const std::filesystem::path& file) : library_(file) {}

} // namespace fmxhost
