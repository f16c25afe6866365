#include "host/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace fmxhost {
namespace {

constexpr std::size_t bufferSize = std::size_t{64} * 1024;

} // namespace

void Output::write(std::string_view bytes)
{
    buffer_.append(bytes);
    if (buffer_.size() >= bufferSize) {
        flush();
    }
}

void Output::flush()
{
    std::string_view rest = buffer_;
    while (!rest.empty()) {
        const ssize_t written = ::write(descriptor_, rest.data(), rest.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            const int error = errno;
            buffer_.clear();
            throw OutputError(error, std::generic_category());
        }
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    buffer_.clear();
}

void reserveStandardDescriptors()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
            // Lowest number first; opened the wrong way round, so that using it fails with EBADF.
            const int flags = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
            if (open("/dev/null", flags) == -1) {
                return;
            }
        }
    }
}

} // namespace fmxhost
