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
#include "platform/posix/remove_tree.h"
#include "platform/posix/tree_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace archiver {

namespace {

using platform::posix::asPlace;
using platform::posix::Descriptor;
using platform::posix::discardEntry;
using platform::posix::folderItself;
using platform::posix::openAt;

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
    WorkFolder(int destination, std::size_t shares)
        : destination_(destination), shares_(shares), item_(makeWorkFolder(destination))
    {
    }
    ~WorkFolder()
    {
        if (item_.name.empty()) {
            return;
        }
        try {
            forEachInParallel(shares_,
                              [this](std::size_t share) { discardEntry(descriptor(), std::to_string(share).c_str()); });
        } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): it is removed all the same
        }
        // Unless it was moved, and something else has the name.
        if (isNameOf(destination_, item_.name, descriptor()) || errno != 0) {
            discardEntry(destination_, item_.name.c_str());
        }
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    int descriptor() const { return item_.open.get(); }

    // Leaves it, under a name by which no later call removes it.
    void keep() noexcept
    {
        renameat(destination_, item_.name.c_str(), destination_, nameToKeep_.c_str());
        item_.name.clear();
    }

private:
    int destination_;
    std::size_t shares_;
    std::string nameToKeep_ = platform::posix::temporaryName();
    WorkItem item_;
};

// Writes what is in an archive into a work folder.
class Unpacking {
public:
    Unpacking(const ZipArchive& archive, const Placement& placement, const std::string& password, int work, mode_t mask)
        : archive_(archive), placement_(placement), password_(password), work_(work), mask_(mask),
          isFlushedAsAWhole_(platform::posix::isFlushedAsAWhole(work))
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

    // An entry, and where it belongs.
    struct Target {
        const ZipEntry& entry;
        std::string_view path;
        int folder;
        std::string name; // empty for a folder that is there already
    };

    // With a mode, folders that are missing on the way are made.
    Target find(TreeCursor& cursor, std::size_t index, std::optional<mode_t> mode = std::nullopt) const
    {
        const ZipEntry& entry = archive_.entries()[index];
        const std::string_view path = archive_.path(entry);
        const std::string place = placement_.workPath(index);
        if (const int error = place.empty() ? 0 : cursor.go(folderOf(place), mode)) {
            failUnpacking(path, error);
        }
        return {entry, path, cursor.folder(), nameOf(place)};
    }

    // Open to their owner until they are in place, and as those that an archive doesn't list are.
    void makeFolders() const
    {
        constexpr mode_t usual = S_IRWXU | S_IRWXG | S_IRWXO;
        TreeCursor cursor(work_);
        if (const int error = cursor.go(placement_.missingInWork(), usual & ~mask_)) {
            failWriting("the destination can't be made", error);
        }
        for (std::size_t index = 0; index < archive_.entries().size(); ++index) {
            throwIfInterrupted();
            const Target target = find(cursor, index, usual & ~mask_);
            if (isNewFolder(target) &&
                mkdirat(target.folder, target.name.c_str(), (target.entry.mode & ~mask_) | S_IRWXU) != 0) {
                failUnpacking(target.path, errno);
            }
        }
    }

    static bool isNewFolder(const Target& target)
    {
        return target.entry.kind == ZipEntry::Kind::folder && !target.name.empty();
    }

    void unpack(const Batch& batch) const
    {
        TreeCursor cursor(work_);
        for (std::size_t index = batch.first; index < batch.end; ++index) {
            const Target target = find(cursor, index);
            switch (target.entry.kind) {
            case ZipEntry::Kind::folder:
                readContent(archive_, target.entry, password_, [](std::span<const std::byte>) {});
                break;
            case ZipEntry::Kind::link:
                makeLink(target);
                break;
            case ZipEntry::Kind::file:
                writeFile(target);
                break;
            }
        }
    }

    void writeFile(const Target& target) const
    {
        constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
        Descriptor file = openAt(target.folder, target.name.c_str(), flags, target.entry.mode & ~mask_);
        if (!file) {
            failUnpacking(target.path, errno);
        }
        std::uint64_t size = 0;
        readContent(archive_, target.entry, password_, [&](std::span<const std::byte> piece) {
            if (const int error = writeAll(file.get(), piece, size)) {
                failUnpacking(target.path, error);
            }
            size += piece.size();
        });
        int error = futimens(file.get(), timesOf(target.entry).data()) == 0 ? 0 : errno;
        if (error == 0 && !isFlushedAsAWhole_) {
            error = platform::posix::flushFile(file.get());
        }
        if (const int closing = file.close(); error != 0 || closing != 0) {
            failUnpacking(target.path, error != 0 ? error : closing);
        }
    }

    // Nothing of the archive lies below it, so nothing is written through it.
    void makeLink(const Target& target) const
    {
        std::string text;
        const auto failLink = [&] { fail(Exit::damaged, quoted(target.path) + " is a link to a path that can't be"); };
        if (target.entry.size == 0 || target.entry.size >= PATH_MAX) {
            failLink();
        }
        readContent(archive_, target.entry, password_, [&](std::span<const std::byte> piece) {
            text.append(reinterpret_cast<const char*>(piece.data()), piece.size());
        });
        if (text.find('\0') != std::string::npos) {
            failLink();
        }
        if (symlinkat(text.c_str(), target.folder, target.name.c_str()) != 0) {
            failUnpacking(target.path, errno);
        }
        setTime(target);
    }

    // Once nothing more comes into them.
    void setFolderTimes() const
    {
        TreeCursor cursor(work_);
        for (std::size_t index = 0; index < archive_.entries().size(); ++index) {
            if (archive_.entries()[index].kind == ZipEntry::Kind::folder) {
                if (const Target target = find(cursor, index); isNewFolder(target)) {
                    setTime(target);
                }
            }
        }
    }

    static void setTime(const Target& target)
    {
        // Not every file system has times for links.
        if (utimensat(target.folder, target.name.c_str(), timesOf(target.entry).data(), AT_SYMLINK_NOFOLLOW) != 0 &&
            target.entry.kind != ZipEntry::Kind::link) {
            failUnpacking(target.path, errno);
        }
    }

    [[noreturn]] static void failUnpacking(std::string_view path, int error)
    {
        failWriting(quoted(path) + " can't be written", error);
    }

    const ZipArchive& archive_;
    const Placement& placement_;
    const std::string& password_;
    int work_;
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

// Modes are less the caller's umask by themselves.
void expandInto(const Destination& destination, const Job& job, const ZipArchive& archive, mode_t mask)
{
    const int folder = destination.folder.get();
    Placement placement(archive, folder, destination.missing, mask);
    WorkFolder work(folder, placement.shares());
    Unpacking(archive, placement, job.password, work.descriptor(), mask).run();
    archive.source().requireUnchanged();
    flushTree(work.descriptor());
    throwIfInterrupted();

    try {
        placement.carryOut(work.descriptor());
    } catch (...) {
        if (!placement.undo(work.descriptor())) {
            work.keep();
        }
        throw;
    }
}

} // namespace

void expand(const Job& job)
{
    const SourceFile source(job.sourceFolder + job.sourceName);
    const ZipArchive archive(source);
    requireCiphers(archive, job.password);
    const mode_t mask = callersMask();
    constexpr int attempts = 3;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        try {
            const Destination destination = openDestination(job.destinationFolder);
            removeLeftovers(destination.folder.get());
            return expandInto(destination, job, archive, mask);
        } catch (const NameTaken&) {
            continue;
        }
    }
    fail(Exit::unusableDestination, "somebody else changes the destination, or two names in the archive are one there");
}

} // namespace archiver
