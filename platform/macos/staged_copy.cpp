#include "platform/macos/staged_copy.h"

#include "platform/macos/restrictions.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/flush.h"
#include "platform/posix/moved_source.h"
#include "platform/posix/names.h"
#include "platform/posix/remove_tree.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace platform::macos {

using posix::Descriptor;
using posix::Failure;

StagedCopy::~StagedCopy()
{
    if (removeOnExit_) {
        posix::withdrawCopy(target_.folder.get(), target_.path.name.c_str(), copied_);
    }
    if (!temporaryName_.empty()) {
        posix::discardEntry(target_.folder.get(), temporaryName_.c_str());
    }
}

Outcome StagedCopy::build()
{
    if (fstatat(source_.folder.get(), source_.path.name.c_str(), &status_, AT_SYMLINK_NOFOLLOW) != 0) {
        return worded(Failure::ofSource(errno));
    }
    temporaryName_ = posix::temporaryName();
    Failure failure = copyTree(options_, source_.folder.get(), source_.path.name.c_str(), target_.folder.get(),
                               temporaryName_, copied_);
    return worded(failure ? failure : flush());
}

// A link, a FIFO or a device is nothing but its name, which is flushed with the folder.
Failure StagedCopy::flush() const
{
    if (!options_.isDurable || (!isFolder() && !S_ISREG(status_.st_mode))) {
        return {};
    }
    const Descriptor made =
        posix::openAt(target_.folder.get(), temporaryName_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!made) {
        // A copy that its owner may not read: all of the file system, by the folder.
        return Failure::ofTarget(posix::flushFileSystem(target_.folder.get()));
    }
    return Failure::ofTarget(isFolder() ? posix::flushFileSystem(made.get()) : posix::flushFile(made.get()));
}

Outcome StagedCopy::publish()
{
    const int folder = target_.folder.get();
    const char* name = target_.path.name.c_str();
    int error = macos::publish(folder, temporaryName_.c_str(), name);
    if (error != 0) {
        return worded(Failure::ofTarget(error));
    }
    temporaryName_.clear();
    removeOnExit_ = true;
    if (options_.isDurable) {
        error = posix::flushEntries(folder, folder);
    }
    return worded(Failure::ofTarget(error));
}

} // namespace platform::macos
