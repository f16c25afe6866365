// The reader of mountinfo files beside the grammar of proc_pid_mountinfo(5), and what is made of any list of mounts.
#include "fuzz/target.h"

#include "platform/linux/mount_filter.h"

#include <sys/mman.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <set>

namespace {

using platform::linux_os::LocalVolume;
using platform::linux_os::Mount;
using platform::linux_os::MountPoint;

// A file in memory, known by its path in /proc.
class MemoryFile {
public:
    explicit MemoryFile(std::string_view content) : m_descriptor(::memfd_create("mountinfo", MFD_CLOEXEC))
    {
        FUZZ_CHECK(m_descriptor >= 0 &&
                   ::write(m_descriptor, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    }
    ~MemoryFile() { ::close(m_descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

private:
    int m_descriptor;
};

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t end = std::min(text.find(separator, start), text.size());
        parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

// A number as the kernel writes it.
std::optional<int> number(std::string_view digits)
{
    int value = 0;
    const char* const end = digits.data() + digits.size();
    const bool isPlain = !digits.empty() && digits.size() <= 9 && digits.front() >= '0' && digits.front() <= '9' &&
                         std::from_chars(digits.data(), end, value).ptr == end && std::to_string(value) == digits;
    return isPlain ? std::optional(value) : std::nullopt;
}

// A field with its escapes undone; the kernel writes no others.
std::optional<std::string> unescaped(std::string_view field)
{
    std::string bytes;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] != '\\') {
            bytes += field[i];
            continue;
        }
        static constexpr std::string_view escapes[] = {"040", "011", "012", "134", "043"};
        static constexpr std::string_view meanings = " \t\n\\#";
        const auto* found = std::find(std::begin(escapes), std::end(escapes), field.substr(i + 1, 3));
        if (found == std::end(escapes)) {
            return std::nullopt;
        }
        bytes += meanings[static_cast<std::size_t>(found - std::begin(escapes))];
        i += 3;
    }
    return bytes;
}

std::optional<Mount> referenceMount(std::string_view line)
{
    const auto parts = split(line, ' ');
    const auto dash = std::find(parts.begin() + std::min<std::ptrdiff_t>(6, std::ssize(parts)), parts.end(), "-");
    const bool isPlain = std::all_of(line.begin(), line.end(), [](char byte) {
        return (byte >= ' ' && byte <= '~') || static_cast<unsigned char>(byte) >= 0x80;
    });
    if (!isPlain || parts.end() - dash != 4 || std::find(parts.begin(), parts.end(), "") != parts.end()) {
        return std::nullopt;
    }
    const auto device = split(parts[2], ':');
    const auto id = number(parts[0]);
    const auto parent = number(parts[1]);
    const auto major = number(device[0]);
    const auto minor = device.size() == 2 ? number(device[1]) : std::nullopt;
    const auto root = unescaped(parts[3]);
    const auto target = unescaped(parts[4]);
    const auto type = unescaped(dash[1]);
    if (!id || !parent || !major || !minor || !root || !target || !type || !unescaped(parts[5]) ||
        !unescaped(dash[2])) {
        return std::nullopt;
    }
    Mount mount;
    mount.id = *id;
    mount.parent = *parent;
    mount.device = makedev(static_cast<unsigned>(*major), static_cast<unsigned>(*minor));
    mount.root = *root;
    mount.target = *target;
    mount.fileSystem = *type;
    return mount;
}

// Nothing when any line isn't as the kernel writes it, or is one that libmount has ways of its own with.
std::optional<std::vector<Mount>> referenceMounts(std::string_view content)
{
    if (!content.ends_with('\n')) {
        return std::nullopt;
    }
    content.remove_suffix(1);
    std::vector<Mount> mounts;
    for (const std::string_view line : split(content, '\n')) {
        const auto mount = referenceMount(line);
        if (!mount || mount->target.ends_with("//deleted") || mount->fileSystem == "autofs") {
            return std::nullopt;
        }
        mounts.push_back(*mount);
    }
    return mounts;
}

bool equal(const Mount& one, const Mount& other)
{
    return one.id == other.id && one.parent == other.parent && one.device == other.device && one.root == other.root &&
           one.target == other.target && one.fileSystem == other.fileSystem;
}

void checkVolumes(const std::vector<Mount>& mounts)
{
    std::set<dev_t> devices;
    for (const LocalVolume& volume : platform::linux_os::localVolumes(mounts)) {
        FUZZ_CHECK(devices.insert(volume.device).second && !volume.mountPoints.empty());
        int lastRank = 0;
        for (const MountPoint& point : volume.mountPoints) {
            const auto mount = std::find_if(mounts.begin(), mounts.end(), [&](const Mount& other) {
                return other.id == point.id && other.target == point.path && other.device == volume.device &&
                       (other.target == "/" || (!other.isPseudo && !other.isNetwork));
            });
            FUZZ_CHECK(mount != mounts.end());
            FUZZ_CHECK(point.path == "/" || std::none_of(mounts.begin(), mounts.end(), [&](const Mount& above) {
                           return above.id != point.id && above.parent == point.id && above.target == point.path;
                       }));
            const int rank = point.path == "/" ? 0 : 1;
            FUZZ_CHECK(lastRank <= rank);
            lastRank = rank;
        }
    }
}

} // namespace

void fuzz::test(std::string_view input)
{
    const MemoryFile file(input);
    const auto mounts = platform::linux_os::readMounts(file.path().c_str());
    if (const auto expected = referenceMounts(input)) {
        FUZZ_CHECK(mounts && std::equal(mounts->begin(), mounts->end(), expected->begin(), expected->end(), equal));
    }
    if (mounts) {
        checkVolumes(*mounts);
    }
}
