// A file counts for what it holds: it is read before each use. That nobody changes it between that and its start is a
// matter of who may write to it and to every folder above it.

#include "platform/linux/script_folder.h"

#include "platform/path_text.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/item_path.h"
#include "platform/signal_block.h"
#include "resources/embedded.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace platform::linux_os {

using posix::Descriptor;
using posix::retried;

namespace {

constexpr uid_t root = 0;
constexpr const char* scriptName = "ZipFuncs.sh";
constexpr const char* programName = "folidex-archive";

bool writeAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto written = retried([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
        if (written <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

Descriptor openIn(int folder, const char* name, int flags, mode_t mode = 0)
{
    return posix::openAt(folder, name, flags | O_NOFOLLOW, mode);
}

// ---- What is in a folder --------------------------------------------------------------------------------------------

bool mayOnlyBeChangedBy(uid_t user, const struct stat& status)
{
    return status.st_uid == user && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool holds(int file, std::string_view content)
{
    std::vector<char> buffer(std::size_t{1} << 16U);
    for (;;) {
        const auto count = retried([&] { return ::read(file, buffer.data(), buffer.size()); });
        if (count <= 0) {
            return count == 0 && content.empty();
        }
        const std::string_view part(buffer.data(), static_cast<std::size_t>(count));
        if (!content.starts_with(part)) {
            return false;
        }
        content.remove_prefix(part.size());
    }
}

// Whether the entry is a file of the user's with this content, which nobody else may change.
bool isThere(int folder, const char* name, uid_t user, std::string_view content)
{
    const Descriptor file = openIn(folder, name, O_RDONLY | O_NONBLOCK);
    struct stat status {};
    return file && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) && mayOnlyBeChangedBy(user, status) &&
           status.st_size == static_cast<off_t>(content.size()) && holds(file.get(), content);
}

bool holdsBoth(int folder, uid_t user)
{
    return isThere(folder, programName, user, resources::archiver) &&
           isThere(folder, scriptName, user, resources::zipFuncs);
}

// Puts a file in its place in one step: another thread or process may be about to start the one that is there.
bool put(int folder, const char* name, std::string_view content)
{
    if (isThere(folder, name, ::geteuid(), content)) {
        return true;
    }
    const SignalBlock noFileSizeSignal(SIGXFSZ);
    const std::string hidden = "." + std::to_string(::getpid()) + "-" + std::to_string(::gettid()) + "-" + name;
    ::unlinkat(folder, hidden.c_str(), 0);
    Descriptor file = openIn(folder, hidden.c_str(), O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    const bool isPut = file && writeAll(file.get(), content) && ::fchmod(file.get(), S_IRWXU) == 0 &&
                       file.close() == 0 && ::renameat(folder, hidden.c_str(), folder, name) == 0;
    if (!isPut) {
        ::unlinkat(folder, hidden.c_str(), 0);
    }
    return isPut;
}

// ---- Folders --------------------------------------------------------------------------------------------------------

// Whether nobody but this user and root can make the path lead elsewhere.
bool isSafe(const std::string& path)
{
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
    if (real == nullptr || path != real.get()) {
        return false;
    }
    for (std::size_t end = path.size(); end != std::string::npos && end > 0; end = path.rfind('/', end - 1)) {
        struct stat status {};
        const std::string part = path.substr(0, end);
        if (::lstat(part.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
            (status.st_uid != root && status.st_uid != ::geteuid()) ||
            ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (status.st_mode & S_ISVTX) == 0)) {
            return false;
        }
    }
    return true;
}

// Of the command that names it nothing may be read by the shell.
std::optional<ResourceFile> scriptIn(const std::string& folder)
{
    if (folder.find('\'') != std::string::npos) {
        return std::nullopt;
    }
    return ResourceFile{folder + "/" + scriptName, nullptr};
}

std::optional<ResourceFile> ofPackage()
{
    const std::string path = resources::packageFolder;
    const Descriptor folder = openIn(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY);
    struct stat status {};
    const bool isRoots = folder && ::fstat(folder.get(), &status) == 0 && mayOnlyBeChangedBy(root, status) &&
                         ::faccessat(folder.get(), programName, X_OK, AT_EACCESS) == 0;
    return isRoots && isSafe(path) && holdsBoth(folder.get(), root) ? scriptIn(path) : std::nullopt;
}

// A folder of this user's alone, made if it isn't there; empty when it isn't such a one.
Descriptor privateFolder(const std::string& path)
{
    if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        return {};
    }
    Descriptor folder = openIn(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY);
    struct stat status {};
    const bool isOurs = folder && ::fstat(folder.get(), &status) == 0 && status.st_uid == ::geteuid() &&
                        ::fchmod(folder.get(), S_IRWXU) == 0 && isSafe(path);
    return isOurs ? std::move(folder) : Descriptor();
}

// Removes the versions that nobody has used for a day, as far as can be seen: whoever still does writes his anew.
void removeOldVersions(const std::string& parent)
{
    constexpr std::time_t day = 86400;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(parent, ignored)) {
        struct stat status {};
        if (::lstat(entry.path().c_str(), &status) == 0 && std::time(nullptr) - status.st_mtime > day) {
            std::filesystem::remove_all(entry.path(), ignored);
        }
    }
}

std::optional<ResourceFile> ofUser(const std::string& parent)
{
    const std::string path = parent + "/" + resources::archiverVersion;
    const Descriptor outer = privateFolder(parent);
    struct statvfs fileSystem {};
    if (!outer || ::fstatvfs(outer.get(), &fileSystem) != 0 ||
        (fileSystem.f_flag & static_cast<unsigned long>(ST_NOEXEC)) != 0) {
        return std::nullopt;
    }
    if (::access(path.c_str(), F_OK) != 0) {
        removeOldVersions(parent);
    }
    const Descriptor folder = privateFolder(path);
    const bool isComplete = folder && put(folder.get(), programName, resources::archiver) &&
                            put(folder.get(), scriptName, resources::zipFuncs);
    return isComplete ? scriptIn(path) : std::nullopt;
}

std::optional<ResourceFile> ofUser()
{
    std::optional<ResourceFile> script;
    // Not from the environment, which may be another user's.
    const std::string home = homeInUserDatabase();
    if (!home.empty() && home != "/") {
        const std::string cache = home + "/.cache";
        ::mkdir(cache.c_str(), S_IRWXU);
        script = ofUser(cache + "/folidex");
    }
    return script ? script : ofUser("/var/tmp/folidex-" + std::to_string(::geteuid()));
}

// ---- Memory ---------------------------------------------------------------------------------------------------------

// A child reaches a memory file through this process's folder in /proc, which the kernel closes to it when this
// process isn't dumpable, as one with file capabilities isn't (prctl(2), PR_SET_DUMPABLE).
bool childrenReachOurDescriptors()
{
    return ::prctl(PR_GET_DUMPABLE) == 1 && ::access("/proc/self/fd", R_OK | X_OK) == 0;
}

// Where this process's descriptors are in /proc, which may be an outer PID namespace's: getpid(2)'s number may be
// another process's there. Empty where that isn't to be seen.
std::string ourDescriptors()
{
    const std::optional<std::string> number = posix::readLink(AT_FDCWD, "/proc/self");
    return number ? "/proc/" + *number + "/fd/" : "";
}

Descriptor memoryFile(const char* name, std::string_view content)
{
    Descriptor file(::memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING));
    constexpr int seals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
    const bool isWhole = file && writeAll(file.get(), content) && ::fcntl(file.get(), F_ADD_SEALS, seals) == 0;
    return isWhole ? std::move(file) : Descriptor();
}

std::optional<ResourceFile> inMemory()
{
    const std::string descriptors = ourDescriptors();
    if (!childrenReachOurDescriptors() || descriptors.empty()) {
        return std::nullopt;
    }
    const SignalBlock noFileSizeSignal(SIGXFSZ);
    auto files = std::make_shared<std::array<Descriptor, 2>>();
    auto& [program, script] = *files;
    program = memoryFile(programName, resources::archiver);
    // What ZipFuncs.sh does with a program that lies beside it.
    script = memoryFile(scriptName,
                        "unset LD_LIBRARY_PATH\nexec " + descriptors + std::to_string(program.get()) + " \"$@\"\n");
    if (!program || !script) {
        return std::nullopt;
    }
    std::string path = descriptors + std::to_string(script.get());
    return ResourceFile{std::move(path), std::move(files)};
}

} // namespace

std::optional<ResourceFile> archiveScript()
{
    std::optional<ResourceFile> script = ofPackage();
    script = script ? script : ofUser();
    return script ? script : inMemory();
}

} // namespace platform::linux_os
