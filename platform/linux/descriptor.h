// An open file descriptor with one owner.
//
// Thread rule: a value belongs to one thread at a time.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform::linux_os {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        if (this != &other) {
            close();
            m_number = std::exchange(other.m_number, -1);
        }
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(); }

    explicit operator bool() const { return m_number >= 0; }
    int get() const { return m_number; }

    // Keeps errno. An interrupted close(2) isn't repeated: Linux has released the number by then.
    void close() noexcept
    {
        if (m_number >= 0) {
            const int saved = errno;
            ::close(std::exchange(m_number, -1));
            errno = saved;
        }
    }

private:
    int m_number = -1;
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
