#include "platform/resources.h"

#include "platform/path_text.h"
#include "platform/posix/descriptor.h"
#include "platform/signal_block.h"
#include "resources/embedded.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <utility>

namespace platform {

namespace {

using posix::Descriptor;
using posix::retried;

bool writeAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto written = retried([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
        if (written < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// A child reaches a memory file through this process's folder in /proc, which the kernel closes to it when this
// process isn't dumpable, as one with file capabilities isn't (prctl(2), PR_SET_DUMPABLE).
bool childrenReachOurDescriptors()
{
    return ::prctl(PR_GET_DUMPABLE) == 1 && ::access("/proc/self/fd", R_OK | X_OK) == 0;
}

// This process's number in the PID namespace that /proc shows, which may be an outer one: getpid(2)'s may be another
// process's there. Empty where that isn't to be seen.
std::optional<std::string> numberInProc()
{
    std::array<char, 32> number{};
    const auto size = ::readlink("/proc/self", number.data(), number.size());
    if (size <= 0) {
        return std::nullopt;
    }
    return std::string(number.data(), static_cast<std::size_t>(size));
}

std::optional<ResourceFile> memoryFile(const std::string& name, std::string_view content)
{
    const std::optional<std::string> process = numberInProc();
    if (!process) {
        return std::nullopt;
    }
    Descriptor file(::memfd_create(name.c_str(), MFD_CLOEXEC | MFD_ALLOW_SEALING));
    constexpr int seals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
    if (!file || !writeAll(file.get(), content) || ::fcntl(file.get(), F_ADD_SEALS, seals) != 0) {
        return std::nullopt;
    }
    std::string path = "/proc/" + *process + "/fd/" + std::to_string(file.get());
    return ResourceFile{std::move(path), std::make_shared<const Descriptor>(std::move(file))};
}

// A file of this user's that goes with the value.
class TemporaryFile {
public:
    TemporaryFile() = default;
    ~TemporaryFile()
    {
        if (!path_.empty()) {
            ::unlink(path_.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return path_; }

    bool create(std::string_view content)
    {
        std::string path;
        Descriptor file(retried([&path] {
            path = "/tmp/folidex-XXXXXX"; // anew, for an attempt that fails leaves letters there
            return ::mkostemp(path.data(), O_CLOEXEC);
        }));
        if (file) {
            path_ = std::move(path);
        }
        return file && writeAll(file.get(), content) && file.close() == 0;
    }

private:
    std::string path_; // empty until there is a file
};

std::optional<ResourceFile> temporaryFile(std::string_view content)
{
    auto file = std::make_shared<TemporaryFile>();
    if (!file->create(content)) {
        return std::nullopt;
    }
    return ResourceFile{file->path(), file};
}

} // namespace

std::optional<std::u16string> localizedString(Bundle, std::string_view table, std::string_view key)
{
    const auto found = std::find_if(resources::strings.begin(), resources::strings.end(),
                                    [key](const resources::Text& text) { return text.key == key; });
    if (table != "KORBFolidex" || found == resources::strings.end()) {
        return std::nullopt;
    }
    return std::u16string(found->value);
}

std::optional<ResourceFile> resourceFile(Bundle, std::string_view name, std::string_view type)
{
    if (name != "ZipFuncs" || type != "sh") {
        return std::nullopt;
    }
    const SignalBlock noFileSizeSignal(SIGXFSZ);
    std::optional<ResourceFile> file;
    if (childrenReachOurDescriptors()) {
        file = memoryFile("ZipFuncs.sh", resources::zipFuncs);
    }
    return file ? file : temporaryFile(resources::zipFuncs);
}

std::string hostApplicationPath()
{
    std::array<char, PATH_MAX> buffer{};
    const auto length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
    const std::string_view executable(buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    const std::size_t slash = executable.rfind('/');
    return std::string(executable.substr(0, slash == 0 ? 1 : std::min(slash, executable.size())));
}

} // namespace platform
