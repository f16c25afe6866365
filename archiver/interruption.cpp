#include "archiver/interruption.h"

#include <atomic>
#include <csignal>
#include <initializer_list>

namespace archiver {

namespace {

std::atomic<int> noted{0}; // the first signal that arrived

void note(int signal)
{
    int none = 0;
    noted.compare_exchange_strong(none, signal);
}
static_assert(std::atomic<int>::is_always_lock_free, "a handler may only use what takes no lock");

} // namespace

void noteInterruptions()
{
    sigset_t all;
    sigemptyset(&all);
    for (const int signal : {SIGTERM, SIGHUP, SIGINT}) {
        struct sigaction before {};
        struct sigaction action {};
        action.sa_handler = note;
        action.sa_flags = SA_RESTART;
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
            sigaction(signal, &action, nullptr);
        }
        sigaddset(&all, signal);
    }
    // A server's threads block signals, and the programs that they start inherit that.
    sigprocmask(SIG_UNBLOCK, &all, nullptr);
}

void throwIfInterrupted()
{
    const int signal = noted.load(std::memory_order_relaxed);
    if (signal != 0) {
        throw Interrupted{signal};
    }
}

} // namespace archiver
