// Shows on standard error, at a terminal, that something still goes on and for how long.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace fmxhost {

// Appears when it has lived for a second and is erased when it goes. Without a terminal it does nothing.
class Spinner {
public:
    Spinner();
    ~Spinner();
    Spinner(const Spinner&) = delete;
    Spinner& operator=(const Spinner&) = delete;

private:
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace fmxhost
