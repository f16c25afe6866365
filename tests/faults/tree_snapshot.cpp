#include "faults/tree_snapshot.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

constexpr time_t longAgo = 1'500'000'000; // the trees that tests build are older

std::string contentOf(const fs::path& path, const struct stat& status)
{
    if (S_ISLNK(status.st_mode)) {
        return fs::read_symlink(path);
    }
    // A log has times in it, archives and encrypted files have times and salts.
    static const std::set<fs::path> neverTwiceTheSame{"LogFile.txt", "archive.zip", "secret.bin"};
    if (!S_ISREG(status.st_mode) || neverTwiceTheSame.count(path.filename()) != 0) {
        return {};
    }
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    std::ifstream(path, std::ios::binary).read(bytes.data(), status.st_size);
    return std::to_string(bytes.size()) + " " + std::to_string(std::hash<std::string>()(bytes));
}

SnapshotEntry entryOf(const fs::path& path)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return {"gone", {}};
    }
    std::array<char, 64> note{};
    const ssize_t noteSize = lgetxattr(path.c_str(), "user.note", note.data(), note.size());
    const bool old = status.st_mtime < longAgo;
    return {std::to_string(status.st_mode & S_IFMT) + " " + contentOf(path, status),
            std::to_string(status.st_mode & 07777U) + " " + std::to_string(status.st_uid) + " " +
                (old ? std::to_string(status.st_mtime) + "." + std::to_string(status.st_mtim.tv_nsec) : "now") + " " +
                std::string(note.data(), noteSize > 0 ? static_cast<std::size_t>(noteSize) : 0)};
}

bool hasEssence(const Snapshot& snapshot, const Snapshot::value_type& entry)
{
    const auto found = snapshot.find(entry.first);
    return found != snapshot.end() && found->second.essence == entry.second.essence;
}

void addDifferences(std::string& text, const char* mark, const Snapshot& from, const Snapshot& other)
{
    for (const auto& [path, entry] : from) {
        const auto found = other.find(path);
        if (found == other.end() || found->second != entry) {
            text.append("    ").append(mark).append(path).append(": ").append(entry.essence).append(" | ");
            text.append(entry.metadata).append("\n");
        }
    }
}

} // namespace

Snapshot takeSnapshot(const std::vector<std::string>& folders)
{
    Snapshot snapshot;
    for (const std::string& folder : folders) {
        if (!fs::exists(fs::symlink_status(folder))) {
            continue;
        }
        snapshot.emplace(folder, entryOf(folder));
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            snapshot.emplace(entry.path(), entryOf(entry.path()));
        }
    }
    return snapshot;
}

bool sameEssence(const Snapshot& first, const Snapshot& second)
{
    return first.size() == second.size() &&
           std::all_of(first.begin(), first.end(), [&](const auto& entry) { return hasEssence(second, entry); });
}

bool isBetween(const Snapshot& before, const Snapshot& now, const Snapshot& after)
{
    const auto isKnown = [&](const auto& entry) { return hasEssence(before, entry) || hasEssence(after, entry); };
    const auto isKept = [&](const auto& entry) { return !hasEssence(after, entry) || hasEssence(now, entry); };
    return std::all_of(now.begin(), now.end(), isKnown) && std::all_of(before.begin(), before.end(), isKept);
}

bool holdsAll(const Snapshot& now, const Snapshot& wanted, std::string_view path)
{
    bool any = false;
    for (const auto& entry : wanted) {
        const std::string& name = entry.first;
        if (name == path || (name.starts_with(path) && name[path.size()] == '/')) {
            any = true;
            if (!hasEssence(now, entry)) {
                return false;
            }
        }
    }
    return any;
}

std::string differences(const Snapshot& before, const Snapshot& now)
{
    std::string text;
    addDifferences(text, "- ", before, now);
    addDifferences(text, "+ ", now, before);
    return text;
}

} // namespace folidex::test
