// Everything is expanded into a work folder inside the destination, which nobody else can enter, together with the
// folders that the destination's path lacks: first the folders, then, on all processors, what they hold. Only what is
// whole, right and on the disk is put into place.

#include "archiver/expansion.h"

#include "archiver/failure.h"
#include "archiver/interruption.h"
#include "archiver/leftovers.h"
#include "archiver/placement.h"
#include "archiver/result_file.h"
#include "archiver/source_file.h"
#include "archiver/tree_cursor.h"
#include "archiver/workers.h"
#include "archiver/zip_content.h"
#include "archiver/zip_reader.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/flush.h"
#include "platform/posix/names.h"
#include "platform/posix/tree_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace archiver {

namespace {

using platform::posix::asPlace;
using platform::posix::Descriptor;
using platform::posix::folderItself;
using platform::posix::openAt;
using platform::posix::retried;

constexpr const char* noDestination = "the destination is no folder that can be written to";

struct Destination {
    Descriptor folder;   // the innermost that exists
    std::string missing; // what lacks below it: "" or "a/b"
};

// Links on the way are followed: they are the caller's.
Destination openDestination(std::string path)
{
    Destination destination;
    for (;;) {
        destination.folder = openAt(AT_FDCWD, path.c_str(), asPlace);
        if (destination.folder) {
            return destination;
        }
        const int error = errno;
        path.resize(path.find_last_not_of('/') + 1);
        struct stat status {};
        if (error != ENOENT || lstat(path.c_str(), &status) == 0) {
            failWriting(noDestination, error);
        }
        const std::string name = nameOf(path);
        if (name == "..") {
            failWriting(noDestination, error);
        }
        path.resize(path.size() - name.size());
        if (name != ".") {
            destination.missing = destination.missing.empty() ? name : name + "/" + destination.missing;
        }
    }
}

// Goes with the value, and all that is in it.
class WorkFolder {
public:
    explicit WorkFolder(int destination) : WorkFolder(destination, makeWorkFolder(destination))
    {
        tree_ = makeFolder("tree");
        kept_ = makeFolder("kept");
    }
    ~WorkFolder()
    {
        if (!item_.name.empty()) {
            removeTree(destination_, item_.name.c_str());
        }
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    int tree() const { return tree_.get(); }
    int kept() const { return kept_.get(); }

    // Leaves it, under a name by which no later call removes it.
    void keep()
    {
        const std::string name = platform::posix::temporaryName();
        renameat(destination_, item_.name.c_str(), destination_, name.c_str());
        item_.name.clear();
    }

private:
    // From its end on the destructor removes what was made.
    WorkFolder(int destination, WorkItem item) : destination_(destination), item_(std::move(item)) {}

    Descriptor makeFolder(const char* name) const
    {
        const int parent = item_.open.get();
        Descriptor made;
        if (mkdirat(parent, name, S_IRWXU) == 0) {
            made = openAt(parent, name, folderItself);
        }
        if (!made) {
            failWriting("no folder can be made in the destination", errno);
        }
        return made;
    }

    int destination_;
    WorkItem item_;
    Descriptor tree_;
    Descriptor kept_;
};

// Writes the tree of an archive.
class Unpacking {
public:
    Unpacking(const ZipArchive& archive, const std::string& password, int root, mode_t mask)
        : archive_(archive), password_(password), root_(root), mask_(mask),
          isFlushedAsAWhole_(platform::posix::isFlushedAsAWhole(root))
    {
    }

    void run()
    {
        makeFolders();
        const std::vector<Batch> batches = makeBatches();
        try {
            forEachInParallel(batches.size(), [&](std::size_t index) { unpack(batches[index]); });
        } catch (const Failure& failure) {
            failAsJudged(archive_, password_, failure);
        }
        setFolderTimes();
    }

private:
    // What one processor takes at a time: neighbours, which mostly share a folder.
    struct Batch {
        std::size_t first;
        std::size_t end;
    };

    std::vector<Batch> makeBatches() const
    {
        constexpr std::size_t mostEntries = 64;
        constexpr std::uint64_t muchContent = std::uint64_t{1} << 20U;
        std::vector<Batch> batches;
        std::uint64_t content = 0;
        for (std::size_t index = 0; index < archive_.entries().size(); ++index) {
            if (batches.empty() || index - batches.back().first == mostEntries || content >= muchContent) {
                batches.push_back({index, index});
                content = 0;
            }
            batches.back().end = index + 1;
            content += archive_.entries()[index].compressedSize;
        }
        return batches;
    }

    // Open to their owner until they are in place, and as those that an archive doesn't list are.
    void makeFolders()
    {
        constexpr mode_t usual = S_IRWXU | S_IRWXG | S_IRWXO;
        TreeCursor cursor(root_);
        for (const ZipEntry& entry : archive_.entries()) {
            throwIfInterrupted();
            const std::string_view path = archive_.path(entry);
            goTo(cursor, path, usual & ~mask_);
            if (entry.kind == ZipEntry::Kind::folder &&
                mkdirat(cursor.folder(), nameOf(path).c_str(), (entry.mode & ~mask_) | S_IRWXU) != 0) {
                failUnpacking(path, errno);
            }
        }
    }

    void unpack(const Batch& batch) const
    {
        TreeCursor cursor(root_);
        for (std::size_t index = batch.first; index < batch.end; ++index) {
            const ZipEntry& entry = archive_.entries()[index];
            const std::string_view path = archive_.path(entry);
            goTo(cursor, path);
            switch (entry.kind) {
            case ZipEntry::Kind::folder:
                readContent(archive_, entry, password_, [](std::span<const std::byte>) {});
                break;
            case ZipEntry::Kind::link:
                makeLink(entry, path, cursor.folder());
                break;
            case ZipEntry::Kind::file:
                writeFile(entry, path, cursor.folder());
                break;
            }
        }
    }

    void writeFile(const ZipEntry& entry, std::string_view path, int folder) const
    {
        Descriptor file =
            openAt(folder, nameOf(path).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, entry.mode & ~mask_);
        if (!file) {
            failUnpacking(path, errno);
        }
        readContent(archive_, entry, password_, [&](std::span<const std::byte> piece) {
            while (!piece.empty()) {
                const ssize_t count = retried([&] { return write(file.get(), piece.data(), piece.size()); });
                if (count <= 0) {
                    failUnpacking(path, count < 0 ? errno : ENOSPC);
                }
                piece = piece.subspan(static_cast<std::size_t>(count));
            }
        });
        const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, modificationTime(entry)};
        int error = futimens(file.get(), times.data()) == 0 ? 0 : errno;
        if (error == 0 && !isFlushedAsAWhole_) {
            error = platform::posix::flushFile(file.get());
        }
        if (const int closing = file.close(); error != 0 || closing != 0) {
            failUnpacking(path, error != 0 ? error : closing);
        }
    }

    // Nothing of the archive lies below it, so nothing is written through it.
    void makeLink(const ZipEntry& entry, std::string_view path, int folder) const
    {
        std::string target;
        if (entry.size == 0 || entry.size >= PATH_MAX) {
            fail(Exit::damaged, quoted(path) + " is a link to a path that can't be");
        }
        readContent(archive_, entry, password_, [&](std::span<const std::byte> piece) {
            target.append(reinterpret_cast<const char*>(piece.data()), piece.size());
        });
        if (target.find('\0') != std::string::npos) {
            fail(Exit::damaged, quoted(path) + " is a link to a path that can't be");
        }
        if (symlinkat(target.c_str(), folder, nameOf(path).c_str()) != 0) {
            failUnpacking(path, errno);
        }
        setTime(entry, path, folder);
    }

    // Once nothing more comes into them.
    void setFolderTimes() const
    {
        TreeCursor cursor(root_);
        for (const ZipEntry& entry : archive_.entries()) {
            if (entry.kind == ZipEntry::Kind::folder) {
                const std::string_view path = archive_.path(entry);
                goTo(cursor, path);
                setTime(entry, path, cursor.folder());
            }
        }
    }

    static void setTime(const ZipEntry& entry, std::string_view path, int folder)
    {
        const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, modificationTime(entry)};
        // Not every file system has times for links.
        if (utimensat(folder, nameOf(path).c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0 &&
            entry.kind != ZipEntry::Kind::link) {
            failUnpacking(path, errno);
        }
    }

    static void goTo(TreeCursor& cursor, std::string_view path, std::optional<mode_t> mode = std::nullopt)
    {
        if (const int error = cursor.go(folderOf(path), mode)) {
            failUnpacking(path, error);
        }
    }

    [[noreturn]] static void failUnpacking(std::string_view path, int error)
    {
        failWriting(quoted(path) + " can't be written", error);
    }

    const ZipArchive& archive_;
    const std::string& password_;
    int root_;
    mode_t mask_;
    bool isFlushedAsAWhole_;
};

// What a folder holds, where not everything is flushed at once.
class FolderFlush : public platform::posix::TreeVisitor {
    platform::posix::Failure visit(const platform::posix::TreeEntry&) override { return {}; }

    platform::posix::Failure leave(const platform::posix::TreeEntry&, int left, Next&) override
    {
        return platform::posix::Failure::ofTarget(platform::posix::flushFolder(left));
    }
};

void flushTree(int tree)
{
    int error = 0;
    if (platform::posix::isFlushedAsAWhole(tree)) {
        error = platform::posix::flushFileSystem(tree);
    } else {
        FolderFlush flush;
        error = platform::posix::walkFolder(openAt(tree, ".", folderItself), flush).error;
    }
    if (error != 0) {
        failWriting("the result can't be written", error);
    }
}

} // namespace

void expand(const Job& job)
{
    const SourceFile source(job.sourceFolder + job.sourceName);
    const ZipArchive archive(source);
    requireCiphers(archive, job.password);
    const Destination destination = openDestination(job.destinationFolder);
    const int folder = destination.folder.get();

    // Modes are less the caller's umask by themselves.
    const mode_t mask = callersMask();
    umask(0);
    removeLeftovers(folder);
    WorkFolder work(folder);
    TreeCursor root(work.tree());
    if (const int error = root.go(destination.missing, (S_IRWXU | S_IRWXG | S_IRWXO) & ~mask)) {
        failWriting("the destination can't be made", error);
    }
    Unpacking(archive, job.password, root.folder(), mask).run();
    source.requireUnchanged();
    flushTree(work.tree());
    throwIfInterrupted();

    const Uninterruptible seenThrough;
    putIntoPlace(archive, {work.tree(), work.kept(), folder, destination.missing, mask}, [&] { work.keep(); });
}

} // namespace archiver
