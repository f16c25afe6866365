#include "host/base/system.h"

#ifdef __APPLE__
// Core Foundation and the loader, and nothing else of macOS.
#include <CoreFoundation/CoreFoundation.h>
#include <mach-o/dyld.h>

#include <array>
#include <climits>
#include <cstdint>
#include <string>
#include <system_error>

namespace fmxhost {
namespace {

// What a function with Create or Copy in its name gave.
template <typename Object>
std::shared_ptr<Object> owned(Object* object)
{
    return {object, [](Object* owned) {
                if (owned != nullptr) {
                    CFRelease(owned);
                }
            }};
}

std::shared_ptr<__CFBundle> bundleAt(const std::string& folder)
{
    const auto url = owned(CFURLCreateFromFileSystemRepresentation(
        nullptr, reinterpret_cast<const UInt8*>(folder.data()), static_cast<CFIndex>(folder.size()), true));
    return owned(url ? CFBundleCreate(nullptr, url.get()) : nullptr);
}

// Empty for a bundle without an executable.
std::filesystem::path executableOf(CFBundleRef bundle)
{
    const auto url = owned(CFBundleCopyExecutableURL(bundle));
    std::array<UInt8, PATH_MAX> path{};
    constexpr Boolean absolute = true;
    if (!url || !CFURLGetFileSystemRepresentation(url.get(), absolute, path.data(), path.size())) {
        return {};
    }
    return reinterpret_cast<const char*>(path.data());
}

} // namespace

PluginFile::PluginFile(const std::filesystem::path& file) : library(file)
{
    std::error_code error;
    if (!std::filesystem::is_directory(file, error)) {
        return;
    }
    auto bundle = bundleAt(file.native());
    std::filesystem::path executable = bundle ? executableOf(bundle.get()) : std::filesystem::path();
    if (!executable.empty()) {
        library = std::move(executable);
        instance = std::move(bundle);
    }
}

std::filesystem::path executableFile()
{
    std::uint32_t size = 0;
    ::_NSGetExecutablePath(nullptr, &size); // dyld(3): returns the size that it needs
    std::string path(size, '\0');
    if (::_NSGetExecutablePath(path.data(), &size) != 0) {
        return {};
    }
    path.resize(path.find('\0'));
    return path;
}

} // namespace fmxhost
#else
namespace fmxhost {

PluginFile::PluginFile(const std::filesystem::path& file) : library(file) {}

std::filesystem::path executableFile()
{
    return "/proc/self/exe"; // proc(5): also when the file has been replaced meanwhile
}

} // namespace fmxhost
#endif
