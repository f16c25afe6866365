// What ships inside the plug-in, and where the host lives.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// The plug-in's own bundle: a CFBundleRef on macOS, owned by the host; null on Linux, where resources are embedded in
// the binary.
struct Bundle {
    void* reference = nullptr;
};

// The value (UTF-16) of `key` in the strings table `table` of the bundle; empty when the table has no such key.
std::optional<std::u16string> localizedString(Bundle bundle, std::string_view table, std::string_view key);

// A resource file with a path that child processes of this process can read, for as long as the value lives. `path`:
// file-system bytes.
struct ResourceFile {
    std::string path;
    std::shared_ptr<const void> keep;
};

// The bundle's resource `name`.`type`; empty when there is no such resource or it can't be given a path.
std::optional<ResourceFile> resourceFile(Bundle bundle, std::string_view name, std::string_view type);

// Path (UTF-8) of the host application: its bundle on macOS; where the host isn't a bundle, the folder of its
// executable.
std::string hostApplicationPath();

} // namespace platform
