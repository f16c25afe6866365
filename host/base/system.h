// What differs between operating systems: how a plug-in lies on the disk, and where this program does.
#pragma once

#include <FMXExtern.h>

#include <filesystem>
#include <memory>
#include <type_traits>

namespace fmxhost {

// A library file; on macOS also a bundle. Thread rule: each object by one thread at a time.
struct PluginFile {
    explicit PluginFile(const std::filesystem::path& file);

    // What the dynamic loader is to load; the file itself where it isn't a bundle, whether or not it is there.
    std::filesystem::path library;
    // For the call record: the bundle's reference; null without a bundle.
    std::shared_ptr<std::remove_pointer_t<decltype(FMX_ExternCallStruct::instanceID)>> instance;
};

// This program's own file: a path by which it can be started once more and examined; it may be a link. Empty where the
// system doesn't say.
std::filesystem::path executableFile();

} // namespace fmxhost
