// XNU asks for a rename whether the item may be deleted and, of a folder, whether it may be written to
// (vn_authorize_renamex_with_paths).

#include "platform/posix/restrictions.h"

#include "platform/posix/access_lists.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/names.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#ifdef __APPLE__
#include <sys/acl.h>
#endif

#include <cerrno>
#include <cstdio>
#include <memory>
#include <type_traits>

namespace platform::posix {

namespace {

#ifdef __APPLE__
constexpr int toChange = itself;
#else
constexpr int toChange = O_RDONLY | O_NONBLOCK | O_NOFOLLOW;
#endif

// Of an open item.
class Restrictions {
public:
    explicit Restrictions(int item) : item_(item) {}

    int lift()
    {
        if (fstat(item_, &status_) != 0) {
            return errno;
        }
#ifdef __APPLE__
        constexpr unsigned locks = UF_IMMUTABLE | UF_APPEND | SF_IMMUTABLE | SF_APPEND;
        if ((status_.st_flags & locks) != 0 && fchflags(item_, status_.st_flags & ~locks) != 0) {
            return errno;
        }
        list_.reset(acl_get_fd_np(item_, ACL_TYPE_EXTENDED));
        if (!dropAccessLists(item_)) {
            return EACCES;
        }
#endif
        // Nobody but the owner, who would be kept out by the list that is missing now.
        const mode_t mode = S_ISDIR(status_.st_mode) ? S_IRWXU : status_.st_mode & S_IRWXU;
        return S_ISLNK(status_.st_mode) || fchmod(item_, mode) == 0 ? 0 : errno;
    }

    int putBack()
    {
        if (status_.st_mode == 0) {
            return 0; // not even looked at
        }
        if (!S_ISLNK(status_.st_mode) && fchmod(item_, status_.st_mode & 07777U) != 0) {
            return errno;
        }
#ifdef __APPLE__
        if ((list_ && acl_set_fd_np(item_, list_.get(), ACL_TYPE_EXTENDED) != 0) ||
            fchflags(item_, status_.st_flags) != 0) {
            return errno;
        }
#endif
        return 0;
    }

private:
    int item_;
    struct stat status_ {};
#ifdef __APPLE__
    struct Free {
        void operator()(acl_t list) const { acl_free(list); }
    };
    using List = std::unique_ptr<std::remove_pointer_t<acl_t>, Free>;
    List list_;
#endif
};

} // namespace

int publish(int fromFolder, const char* from, int toFolder, const char* to)
{
    int error = renameExclusively(fromFolder, from, toFolder, to);
    if (error != EPERM && error != EACCES) {
        return error;
    }
    const Descriptor item = openAt(fromFolder, from, toChange);
    if (!item) {
        return error;
    }
    Restrictions restrictions(item.get());
    if (restrictions.lift() == 0) {
        error = renameExclusively(fromFolder, from, toFolder, to);
    }
    if (const int putBackError = restrictions.putBack(); error == 0 && putBackError != 0) {
        unlock(toFolder, to, DT_UNKNOWN);
        renameat(toFolder, to, fromFolder, from); // unfinished after all
        return putBackError;
    }
    return error;
}

void unlock(int folder, const char* name, unsigned char)
{
    if (const Descriptor item = openAt(folder, name, toChange)) {
        Restrictions(item.get()).lift();
        return;
    }
    struct stat status {};
    if (fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode)) {
        [[maybe_unused]] const int result = fchmodat(folder, name, S_IRWXU, AT_SYMLINK_NOFOLLOW); // unreadable
    }
}

} // namespace platform::posix
