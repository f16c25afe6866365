// A plug-in as it lies on the disk: a library file on Linux; on macOS a bundle, or a library file without one.
//
// Thread rule: any thread, each object by one at a time.
#pragma once

#include <FMXExtern.h>

#include <filesystem>
#include <memory>
#include <type_traits>

namespace fmxhost {

class PluginFile {
public:
    using Instance = std::remove_pointer_t<decltype(FMX_ExternCallStruct::instanceID)>;

    PluginFile() = default;
    explicit PluginFile(const std::filesystem::path& file);

    // What the dynamic loader is to load; the file itself where it isn't a bundle, whether or not it is there.
    const std::filesystem::path& library() const { return library_; }

    // For the call record: the bundle's reference, kept as long as this object or a copy of it; null without a bundle.
    Instance* instance() const { return instance_.get(); }

private:
    std::filesystem::path library_;
    std::shared_ptr<Instance> instance_;
};

} // namespace fmxhost
