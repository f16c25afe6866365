#include "support/tree_snapshot.h"

#include <sys/stat.h>
#ifdef __linux__
#include <sys/xattr.h>
#endif

#include <array>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>

namespace folidex::test {

namespace fs = std::filesystem;

namespace {

std::string contentOf(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    return std::to_string(bytes.size()) + " bytes " + std::to_string(std::hash<std::string>()(bytes));
}

#ifdef __linux__
std::string attributesOf(const fs::path& item)
{
    std::array<char, 4096> names{};
    std::array<char, 4096> value{};
    std::map<std::string, std::string> attributes;
    const ssize_t size = llistxattr(item.c_str(), names.data(), names.size());
    for (ssize_t at = 0; at < size;) {
        const std::string name = names.data() + at;
        at += static_cast<ssize_t>(name.size()) + 1;
        const ssize_t length = lgetxattr(item.c_str(), name.c_str(), value.data(), value.size());
        attributes[name].assign(value.data(), length < 0 ? 0 : static_cast<std::size_t>(length));
    }
    std::string text;
    for (const auto& [name, bytes] : attributes) {
        text += " " + name + "=" + std::to_string(std::hash<std::string>()(bytes));
    }
    return text;
}
#else
std::string attributesOf(const fs::path&)
{
    return {};
}
#endif

SnapshotEntry describe(const fs::path& item)
{
    struct stat status {};
    if (lstat(item.c_str(), &status) != 0) {
        return {"nothing", {}, {}};
    }
    SnapshotEntry entry{std::to_string(status.st_mode & S_IFMT), {}, {}};
    if (S_ISLNK(status.st_mode)) {
        entry.content += " -> " + fs::read_symlink(item).native();
    } else if (S_ISREG(status.st_mode)) {
        entry.content += " " + contentOf(item);
    } else if (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode)) {
        entry.content += " device " + std::to_string(status.st_rdev);
    }
    std::ostringstream text;
    text << std::oct << (status.st_mode & 07777U) << std::dec << ' ' << status.st_uid << ':' << status.st_gid
         << attributesOf(item);
    entry.metadata = text.str();
#ifdef __linux__
    entry.modified = std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
#endif
    return entry;
}

} // namespace

Snapshot snapshot(const fs::path& root)
{
    Snapshot items;
    items[""] = describe(root);
    if (fs::is_directory(fs::symlink_status(root))) {
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            items[entry.path().native().substr(root.native().size())] = describe(entry.path());
        }
    }
    return items;
}

} // namespace folidex::test
