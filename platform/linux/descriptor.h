// An open file descriptor with one owner.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform::linux_os {

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

    // Answers an errno value, for a written file's content may be refused as late as here. Keeps errno. An interrupted
    // close(2) isn't repeated: Linux has released the number by then.
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

// Repeats a system call for as long as a signal interrupts it (signal(7)); answers the call's result.
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

} // namespace platform::linux_os
