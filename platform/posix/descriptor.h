// An open file descriptor with one owner, and the opening of it.
#pragma once

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform::posix {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        if (this != &other) {
            close();
            number_ = std::exchange(other.number_, -1);
        }
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(); }

    explicit operator bool() const { return number_ >= 0; }
    int get() const { return number_; }

    // Gives the number to another owner.
    int release() { return std::exchange(number_, -1); }

    // Returns an errno value, for a written file's content may be refused as late as here. Keeps errno. An interrupted
    // close(2) isn't repeated: Linux and macOS have released the number by then.
    int close() noexcept
    {
        const int saved = errno;
        const int error = number_ >= 0 && ::close(std::exchange(number_, -1)) != 0 ? errno : 0;
        errno = saved;
        return error;
    }

private:
    int number_ = -1;
};

// Repeats a system call for as long as a signal interrupts it (signal(7)); returns the call's result.
template <typename Call>
auto retried(Call&& call)
{
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) {
            return result;
        }
    }
}

// Opens a folder as a place that names are relative to, which takes the right to search the folders above it alone;
// it can't be read.
#ifdef __APPLE__
inline constexpr int asPlace = O_SEARCH;
#else
inline constexpr int asPlace = O_PATH | O_DIRECTORY;
#endif

// Opens an item whatever it is, a link itself, so that its status can be asked for, where the system can do that
// without side effects.
#ifdef __APPLE__
inline constexpr int itself = O_RDONLY | O_SYMLINK | O_NONBLOCK;
#else
inline constexpr int itself = O_PATH | O_NOFOLLOW;
#endif

// Opens a folder for reading, and nothing else: no link is followed to it.
inline constexpr int folderItself = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;

// As openat(2), close-on-exec; empty with errno on failure.
inline Descriptor openAt(int folder, const char* name, int flags, mode_t mode = 0)
{
    return Descriptor(retried([=] { return openat(folder, name, flags | O_CLOEXEC, mode); }));
}

// What closing a written file would return (close(2)), without closing it: an errno value, 0 for success. File systems
// that report there what they couldn't keep do so for every descriptor that is closed.
inline int errorOfClosing(int file)
{
    for (;;) {
        Descriptor second(fcntl(file, F_DUPFD_CLOEXEC, 0));
        const int error = second ? second.close() : errno;
        if (error != EINTR) {
            return error;
        }
    }
}

} // namespace platform::posix
