// A pointer that many threads read and replace: the last writer wins, a reader gets one writer's whole value, and
// nothing is freed under a reader. What it points to is const or safe to share in its own right.
//
// This is what std::atomic<std::shared_ptr> promises; the libraries that this builds with lack it (libc++) or trip
// ThreadSanitizer over it (libstdc++ 12). The flag is held for the swap of two pointers only: no allocation, no
// release and no system call happens under it.
#pragma once

#include <atomic>
#include <memory>
#include <thread>
#include <utility>

namespace frame {

template <typename Value>
class SnapshotCell {
public:
    using Pointer = std::shared_ptr<Value>;

    Pointer load() const
    {
        const Hold hold(busy_);
        return value_;
    }

    void store(Pointer value)
    {
        {
            const Hold hold(busy_);
            value_.swap(value);
        }
        // The former value, now in `value`, is released here, outside of the hold.
    }

private:
    class Hold {
    public:
        explicit Hold(std::atomic_flag& flag) : flag_(flag)
        {
            while (flag_.test_and_set(std::memory_order_acquire)) {
                std::this_thread::yield();
            }
        }
        ~Hold() { flag_.clear(std::memory_order_release); }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        std::atomic_flag& flag_;
    };

    mutable std::atomic_flag busy_;
    Pointer value_;
};

} // namespace frame
