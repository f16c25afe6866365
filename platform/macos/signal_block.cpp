// A Mac sends the signals of a thread's own calls to the whole process, where any thread that doesn't block them gets
// them. So a signal that would end the process is ignored by all of it for as long as a value lives; a host that
// handles the signal goes on doing so.

#include "platform/signal_block.h"

#include <cerrno>
#include <csignal>
#include <mutex>

namespace platform {

namespace {

[[clang::no_destroy]] std::mutex guard; // calls may still be under way when the process exits
int values = 0;                         // of all threads; one signal is all that there is in use
bool isIgnored = false;

} // namespace

SignalBlock::SignalBlock(int signal) : signal_(signal)
{
    const std::lock_guard lock(guard);
    struct sigaction current {};
    if (values++ == 0 && ::sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
        current.sa_handler = SIG_IGN;
        isIgnored = ::sigaction(signal, &current, nullptr) == 0;
    }
}

SignalBlock::~SignalBlock()
{
    const int saved = errno;
    const std::lock_guard lock(guard);
    if (--values == 0 && isIgnored) {
        struct sigaction initial {};
        initial.sa_handler = SIG_DFL;
        ::sigaction(signal_, &initial, nullptr);
        isIgnored = false;
    }
    errno = saved;
}

} // namespace platform
