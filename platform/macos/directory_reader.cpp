// By readdir(3), always all names first: some file systems skip entries when others are removed between two reads. A
// record is the entry's type and its name with the zero.

#include "platform/posix/directory_reader.h"

#include "platform/posix/descriptor.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace platform::posix {

namespace {

struct Close {
    void operator()(DIR* folder) const { closedir(folder); }
};

} // namespace

void DirectoryReader::fill()
{
    isAtEnd_ = true;
    // Not opened anew, which takes the right to search the folder. closedir(3) closes it.
    Descriptor own(fcntl(folder_, F_DUPFD_CLOEXEC, 0));
    const std::unique_ptr<DIR, Close> folder(own ? fdopendir(own.get()) : nullptr);
    if (!folder) {
        error_ = errno;
        return;
    }
    own.release();
    reserve(std::size_t{64} * 1024);
    for (;;) {
        errno = 0;
        const dirent* found = readdir(folder.get());
        if (found == nullptr) {
            error_ = errno;
            return;
        }
        const std::size_t length = std::strlen(found->d_name) + 1;
        reserve(filled_ + 1 + length);
        buffer_[filled_] = static_cast<std::byte>(found->d_type);
        std::memcpy(buffer_.get() + filled_ + 1, found->d_name, length);
        filled_ += 1 + length;
    }
}

DirectoryEntry DirectoryReader::entryAt(const std::byte* record)
{
    const auto* name = reinterpret_cast<const char*>(record + 1);
    position_ += 1 + std::strlen(name) + 1;
    return {name, static_cast<unsigned char>(*record)};
}

} // namespace platform::posix
