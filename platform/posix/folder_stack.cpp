#include "platform/posix/folder_stack.h"

#include <sys/stat.h>

#include <cerrno>
#include <utility>

namespace platform::posix {

int FolderStack::enter(const std::string& name)
{
    Descriptor next = openAt(folder(), name.c_str(), folderItself);
    return next ? enter(name, std::move(next)) : errno;
}

int FolderStack::enter(std::string name, Descriptor folder)
{
    if (levels_.size() - firstOpen_ >= keptOpen) {
        Level& outermost = levels_[firstOpen_];
        struct stat status {};
        if (fstat(outermost.folder.get(), &status) != 0) {
            return errno;
        }
        outermost.identity = Identity::of(status);
        outermost.folder.close();
        ++firstOpen_;
    }
    if (!levels_.empty()) {
        path_.append("/").append(name);
    }
    levels_.push_back({std::move(folder), std::move(name)});
    return 0;
}

Descriptor FolderStack::leave(int& error)
{
    if (levels_.size() > 1 && !levels_[levels_.size() - 2].folder) {
        Level& above = levels_[levels_.size() - 2];
        Descriptor again = openAt(folder(), "..", folderItself);
        struct stat status {};
        if (!again || fstat(again.get(), &status) != 0) {
            error = errno;
            return {};
        }
        if (Identity::of(status) != above.identity) {
            error = ESTALE;
            return {};
        }
        above.folder = std::move(again);
        --firstOpen_;
    }
    Descriptor left = std::move(levels_.back().folder);
    leftName_ = std::move(levels_.back().name);
    levels_.pop_back();
    path_.resize(levels_.empty() ? 0 : path_.size() - leftName_.size() - 1);
    return left;
}

} // namespace platform::posix
