// Depth first and without recursion. A folder is read to its end at once: what isn't a folder is visited as it is read,
// the names of its folders are kept in its level. Then the walk goes on with the next name that the innermost level
// keeps, and leaves the folder when there is none. The root's name is kept in a level for the place around it.

#include "platform/posix/tree_walk.h"

#include "platform/posix/folder_stack.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

namespace platform::posix {

namespace {

class Walk {
public:
    Walk(int base, TreeVisitor& visitor, Names names) : visitor_(visitor), names_(names), folders_(base), levels_(1) {}

    Failure run(const char* name);
    Failure run(Descriptor root);

private:
    struct Level {
        std::string kept{};    // names, each followed by a zero, which no name contains
        std::size_t taken = 0; // of kept
        Place place = rootPlace;
    };

    Failure run();
    Failure visit(const char* name, unsigned char type);
    Failure goInto(const std::string& name);
    Failure enter(const TreeEntry& entry, Descriptor opened);
    Failure readEntries(const TreeEntry& folder);
    Failure leave();

    void keep(std::string_view name) { levels_.back().kept.append(name).push_back('\0'); }
    std::optional<std::string> takeKept();

    TreeEntry entryOf(const char* name, unsigned char type) const
    {
        return {folders_.folder(),   name, type, folders_.depth(), &folders_.path(), folders_.path().size(),
                levels_.back().place};
    }
    static Failure at(const TreeEntry& entry, Failure failure)
    {
        return failure && !failure.path ? std::move(failure).at(entry.path()) : std::move(failure);
    }
    Failure failed(const TreeEntry& entry, int error) { return at(entry, visitor_.failed(entry, error)); }

    TreeVisitor& visitor_;
    Names names_;
    FolderStack folders_;
    std::vector<Level> levels_; // of the base, and of every folder that was entered
    DirectoryReader reader_;
};

Failure Walk::run(const char* name)
{
    Failure failure = visit(name, DT_UNKNOWN);
    return failure ? std::move(failure) : run();
}

Failure Walk::run(Descriptor root)
{
    Failure failure = enter(entryOf("", DT_DIR), std::move(root));
    return failure ? std::move(failure) : run();
}

Failure Walk::run()
{
    for (;;) {
        Failure failure;
        if (const std::optional<std::string> name = takeKept()) {
            failure = goInto(*name);
        } else if (folders_.depth() > 0) {
            failure = leave();
        } else {
            return {};
        }
        if (failure) {
            return failure;
        }
    }
}

// Some file systems don't keep in the folder what its entries are (XFS without ftype, FUSE).
Failure Walk::visit(const char* name, unsigned char type)
{
    TreeEntry entry = entryOf(name, type);
    if (type == DT_UNKNOWN) {
        struct stat status {};
        if (const Failure unknown = entry.examine(status)) {
            return failed(entry, unknown.error);
        }
        entry.type = static_cast<unsigned char>((status.st_mode & S_IFMT) >> 12U); // as IFTODT(), which isn't POSIX
    }
    if (entry.type == DT_DIR) {
        keep(name);
        return {};
    }
    return at(entry, visitor_.visit(entry));
}

Failure Walk::goInto(const std::string& name)
{
    const TreeEntry entry = entryOf(name.c_str(), DT_DIR);
    TreeVisitor::Choice choice = TreeVisitor::Choice::enter;
    Failure failure = at(entry, visitor_.choose(entry, choice));
    if (failure || choice == TreeVisitor::Choice::skip) {
        return failure;
    }
    Descriptor opened = openAt(entry.folder, entry.name, folderItself);
    return opened ? enter(entry, std::move(opened)) : failed(entry, errno);
}

Failure Walk::enter(const TreeEntry& entry, Descriptor opened)
{
    const int folder = opened.get();
    if (const int error = folders_.enter(entry.name, std::move(opened))) {
        return failed(entry, error);
    }
    levels_.push_back({.place = entry.place()});
    Failure failure = at(entry, visitor_.enter(entry, folder));
    return failure ? std::move(failure) : readEntries(entry);
}

Failure Walk::readEntries(const TreeEntry& folder)
{
    reader_.start(folders_.folder(), names_);
    std::vector<DirectoryEntry> sorted;
    while (const DirectoryEntry* entry = reader_.next()) {
        if (names_ == Names::sorted) {
            sorted.push_back(*entry); // with all names read first they all stay valid
            continue;
        }
        Failure failure = visit(entry->name, entry->type);
        if (failure) {
            return failure;
        }
    }
    std::sort(sorted.begin(), sorted.end(), [](const DirectoryEntry& left, const DirectoryEntry& right) {
        return std::strcmp(left.name, right.name) < 0;
    });
    for (const DirectoryEntry& entry : sorted) {
        Failure failure = visit(entry.name, entry.type);
        if (failure) {
            return failure;
        }
    }
    return reader_.error() == 0 ? Failure{} : failed(folder, reader_.error());
}

Failure Walk::leave()
{
    int error = 0;
    const Descriptor left = folders_.leave(error);
    if (!left) {
        TreeEntry stranded = entryOf(folders_.name().c_str(), DT_DIR);
        stranded.folderPathLength -= folders_.name().size() + 1;
        Failure failure = failed(stranded, error);
        return failure ? std::move(failure) : Failure::ofSource(error).at(folders_.path());
    }
    levels_.pop_back();
    const std::string& name = folders_.leftName();
    const TreeEntry entry = entryOf(name.c_str(), DT_DIR);
    TreeVisitor::Next next = TreeVisitor::Next::go;
    Failure failure = at(entry, visitor_.leave(entry, left.get(), next));
    if (next == TreeVisitor::Next::repeat) {
        keep(name);
    }
    return failure;
}

std::optional<std::string> Walk::takeKept()
{
    Level& level = levels_.back();
    if (level.taken == level.kept.size()) {
        return std::nullopt;
    }
    std::string name = level.kept.c_str() + level.taken;
    level.taken += name.size() + 1;
    return name;
}

} // namespace

std::string TreeEntry::path() const
{
    return isRoot() ? std::string() : folderPath().append("/").append(name);
}

Place TreeEntry::place() const
{
    return isRoot() ? rootPlace : placeOf(folderPlace, name);
}

Failure TreeEntry::examine(struct stat& status) const
{
    return retried([&] { return fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW); }) == 0 ? Failure{}
                                                                                             : Failure::ofSource(errno);
}

Failure TreeVisitor::choose(const TreeEntry&, Choice&)
{
    return {};
}

Failure TreeVisitor::enter(const TreeEntry&, int)
{
    return {};
}

Failure TreeVisitor::leave(const TreeEntry&, int, Next&)
{
    return {};
}

Failure TreeVisitor::failed(const TreeEntry&, int error)
{
    return Failure::ofSource(error);
}

Failure walkTree(int folder, const char* name, TreeVisitor& visitor, Names names)
{
    return Walk(folder, visitor, names).run(name);
}

Failure walkFolder(Descriptor root, TreeVisitor& visitor, Names names)
{
    return Walk(-1, visitor, names).run(std::move(root));
}

} // namespace platform::posix
