#include "archiver/source_file.h"

#include "archiver/failure.h"
#include "archiver/interruption.h"
#include "platform/posix/copy_record.h"
#include "platform/posix/file_times.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace archiver {

using platform::posix::changeTime;
using platform::posix::openAt;
using platform::posix::retried;

platform::posix::Descriptor openForReading(int folder, const char* name, int flags)
{
    const int withoutEffect = O_RDONLY | O_NOCTTY | flags;
    platform::posix::Descriptor item = openAt(folder, name, withoutEffect | O_NONBLOCK);
    const bool isLeased = !item && errno == EWOULDBLOCK;
    return isLeased ? openAt(folder, name, withoutEffect) : std::move(item);
}

SourceFile::SourceFile(const std::string& path) : file_(openForReading(AT_FDCWD, path.c_str()))
{
    if (!file_ || fstat(file_.get(), &status_) != 0) {
        fail(Exit::unusableSource, std::string("the source can't be opened: ") + std::strerror(errno));
    }
    if (!S_ISREG(status_.st_mode)) {
        fail(Exit::unusableSource, "the source is no file");
    }
#ifdef __linux__
    posix_fadvise(file_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
}

void SourceFile::read(std::uint64_t offset, std::span<std::byte> buffer) const
{
    throwIfInterrupted();
    while (!buffer.empty()) {
        const auto count =
            retried([&] { return pread(file_.get(), buffer.data(), buffer.size(), static_cast<off_t>(offset)); });
        if (count < 0) {
            fail(Exit::unusableSource, std::string("the source can't be read: ") + std::strerror(errno));
        }
        if (count == 0) {
            fail(Exit::unusableSource, "the source has shrunk");
        }
        buffer = buffer.subspan(static_cast<std::size_t>(count));
        offset += static_cast<std::uint64_t>(count);
    }
}

void SourceFile::requireUnchanged() const
{
    struct stat now {};
    if (fstat(file_.get(), &now) != 0 || !platform::posix::hasSameContent(now, status_) ||
        !platform::posix::areEqual(changeTime(now), changeTime(status_))) {
        fail(Exit::unusableSource, "the source has changed meanwhile");
    }
}

} // namespace archiver
