#include "archiver/leftovers.h"

#include "archiver/failure.h"
#include "platform/posix/access_lists.h"
#include "platform/posix/directory_reader.h"
#include "platform/posix/identity.h"
#include "platform/posix/names.h"
#include "platform/posix/remove_tree.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <fstream>
#include <vector>

namespace archiver {

using platform::posix::Descriptor;
using platform::posix::DirectoryReader;
using platform::posix::folderItself;
using platform::posix::Identity;
using platform::posix::openAt;
using platform::posix::retried;

namespace {

constexpr std::string_view workPrefix = ".folidex-archive-";
constexpr int attempts = 8; // at a name that nothing has

// Of several hosts that share a volume not all see the locks of each other.
std::string hostTag()
{
    std::array<char, 256> name{};
    gethostname(name.data(), name.size() - 1);
    std::string host = name.data();
    std::string machine;
    if (std::ifstream file("/etc/machine-id"); std::getline(file, machine)) {
        host += " " + machine;
    }
    std::uint64_t hash = 0xcbf29ce484222325U; // FNV-1a
    for (const char letter : host) {
        hash = (hash ^ static_cast<unsigned char>(letter)) * 0x100000001b3U;
    }
    std::string tag;
    for (int digit = 0; digit < 8; ++digit, hash >>= 5U) {
        tag.push_back("abcdefghijklmnopqrstuvwxyz234567"[hash % 32]);
    }
    return tag;
}

// Every work item of this host begins with it.
const std::string& hostPrefix()
{
    static const std::string prefix = std::string(workPrefix) + hostTag() + "-";
    return prefix;
}

// Between its making and its locking an item looks like one that was left: whoever removes those may have taken it.
bool isTaken(int folder, const WorkItem& item)
{
    return !lockWorkItem(item.open.get()) || !isNameOf(folder, item.name, item.open.get());
}

template <typename Make>
WorkItem makeWorkItem(int folder, const Make& make)
{
    for (int attempt = 0; attempt < attempts; ++attempt) {
        WorkItem item;
        item.name = workName();
        item.open = make(item.name.c_str());
        if (!item.open && errno != EEXIST && errno != ENOENT) {
            break;
        }
        if (item.open && !isTaken(folder, item)) {
            platform::posix::dropAccessLists(item.open.get());
            return item;
        }
        if (item.open && unlinkat(folder, item.name.c_str(), 0) != 0) {
            unlinkat(folder, item.name.c_str(), AT_REMOVEDIR);
        }
    }
    failWriting("nothing can be made in the destination", errno);
}

// A name of a work item that nobody works on: of this host and user, and it can be locked.
bool isLeftover(int folder, const std::string& name)
{
    struct stat status {};
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || status.st_uid != geteuid() ||
        !(S_ISDIR(status.st_mode) || S_ISREG(status.st_mode))) {
        return false;
    }
    const Descriptor item = openAt(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    return item && isNameOf(folder, name, item.get()) &&
           retried([&] { return flock(item.get(), LOCK_EX | LOCK_NB); }) == 0;
}

} // namespace

bool isNameOf(int folder, const std::string& name, int item)
{
    errno = 0;
    struct stat entry {};
    struct stat open {};
    return fstatat(folder, name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) == 0 && fstat(item, &open) == 0 &&
           Identity::of(entry) == Identity::of(open);
}

WorkItem makeWorkFile(int folder)
{
    return makeWorkItem(folder, [folder](const char* name) {
        return openAt(folder, name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    });
}

WorkItem makeWorkFolder(int folder)
{
    return makeWorkItem(folder, [folder](const char* name) {
        Descriptor made;
        if (mkdirat(folder, name, S_IRWXU) == 0) {
            made = openAt(folder, name, folderItself);
            if (const int error = errno; !made) {
                unlinkat(folder, name, AT_REMOVEDIR);
                errno = error;
            }
        }
        return made;
    });
}

std::string workName()
{
    return hostPrefix() +
           platform::posix::temporaryName().substr(std::string_view(platform::posix::temporaryPrefix).size());
}

bool lockWorkItem(int item)
{
    return retried([=] { return flock(item, LOCK_EX | LOCK_NB); }) == 0 || errno != EWOULDBLOCK;
}

bool isWorkName(std::string_view name)
{
    return name.starts_with(workPrefix);
}

void removeLeftovers(int folder) noexcept
{
    try {
        const Descriptor readable = openAt(folder, ".", folderItself);
        if (!readable) {
            return;
        }
        std::vector<std::string> names;
        DirectoryReader reader;
        reader.start(readable.get());
        while (const auto* entry = reader.next()) {
            if (std::string_view(entry->name).starts_with(hostPrefix())) {
                names.emplace_back(entry->name);
            }
        }
        for (const std::string& name : names) {
            if (isLeftover(folder, name)) {
                platform::posix::discardEntry(folder, name.c_str());
            }
        }
    } catch (const std::exception&) {
        // No memory for it: the next call tries again.
    }
}

} // namespace archiver
