// Work on all processors whose results are wanted in the order of the tasks, in a bounded amount of memory: the thread
// that fills the tasks also takes what has been made of them.
//
// The tasks stand in a ring and are used again and again, with the memory that they hold. Threads are started as tasks
// find none idle, until there is one for each processor, the caller's included: while that waits for the oldest task,
// it does what nobody has begun. So all gets done even if no thread can be started.
#pragma once

#include "archiver/workers.h"

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace archiver {

// Task: default constructible, with `void work()`.
// Thread rule: one thread calls its functions; work() runs on any.
template <typename Task>
class OrderedWork {
public:
    OrderedWork() : slots_(2 * mostThreads() + 1) {}
    ~OrderedWork()
    {
        {
            const std::lock_guard lock(mutex_);
            isOver_ = true;
        }
        submission_.notify_all();
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }
    OrderedWork(const OrderedWork&) = delete;
    OrderedWork& operator=(const OrderedWork&) = delete;

    bool isFull() const { return submitted_ - taken_ == slots_.size(); }
    bool isEmpty() const { return submitted_ == taken_; }

    // The task to be filled, as its last use left it: the same one until submit(). Not while isFull().
    Task& next() { return slot(submitted_).task; }

    void submit()
    {
        bool isThreadWanted = false;
        {
            const std::lock_guard lock(mutex_);
            slot(submitted_).isDone = false;
            ++submitted_;
            isThreadWanted = submitted_ - begun_ > idle_ && threads_.size() + 1 < mostThreads();
        }
        submission_.notify_one();
        if (isThreadWanted) {
            try {
                threads_.emplace_back([this] { workUntilOver(); });
            } catch (const std::system_error&) { // NOLINT(bugprone-empty-catch): it goes without
            }
        }
    }

    // The oldest task, its work done, for use until the next call; or what its work threw. Not while isEmpty().
    Task& take()
    {
        std::unique_lock lock(mutex_);
        Slot& oldest = slot(taken_);
        while (!oldest.isDone) {
            if (begun_ < submitted_) {
                workOnNext(lock);
            } else {
                completion_.wait(lock);
            }
        }
        ++taken_;
        if (oldest.failure) {
            std::rethrow_exception(std::exchange(oldest.failure, nullptr));
        }
        return oldest.task;
    }

private:
    struct Slot {
        Task task;
        bool isDone = false;
        std::exception_ptr failure;
    };

    // More wouldn't get done than one thread reads and writes.
    static std::size_t mostThreads() { return std::min(usableProcessors(), 32U); }

    Slot& slot(std::size_t number) { return slots_[number % slots_.size()]; }

    void workUntilOver()
    {
        std::unique_lock lock(mutex_);
        for (;;) {
            ++idle_;
            submission_.wait(lock, [this] { return isOver_ || begun_ < submitted_; });
            --idle_;
            if (isOver_) {
                return;
            }
            workOnNext(lock);
        }
    }

    // Unlocks meanwhile.
    void workOnNext(std::unique_lock<std::mutex>& lock)
    {
        Slot& begun = slot(begun_);
        ++begun_;
        lock.unlock();
        std::exception_ptr failure;
        try {
            begun.task.work();
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        begun.failure = failure;
        begun.isDone = true;
        completion_.notify_one();
    }

    std::vector<Slot> slots_;
    std::vector<std::thread> threads_;
    std::mutex mutex_;
    std::condition_variable submission_;
    std::condition_variable completion_; // the caller's thread waits for it
    // Numbers of tasks since the beginning; the caller's thread alone changes the first and the last.
    std::size_t submitted_ = 0;
    std::size_t begun_ = 0;
    std::size_t taken_ = 0;
    std::size_t idle_ = 0; // threads
    bool isOver_ = false;
};

} // namespace archiver
