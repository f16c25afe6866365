#include "platform/signal_block.h"

#include <cerrno>
#include <csignal>
#include <ctime>

namespace platform {

namespace {

sigset_t only(int signal)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    return set;
}

bool isPending(int signal)
{
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, signal) == 1;
}

} // namespace

SignalBlock::SignalBlock(int signal) : signal_(signal)
{
    sigset_t before;
    const sigset_t set = only(signal);
    wasBlocked_ = pthread_sigmask(SIG_BLOCK, &set, &before) == 0 && sigismember(&before, signal) == 1;
    wasPending_ = isPending(signal);
}

SignalBlock::~SignalBlock()
{
    const int saved = errno;
    const sigset_t set = only(signal_);
    constexpr timespec now{};
    if (!wasPending_ && isPending(signal_)) {
        sigtimedwait(&set, nullptr, &now);
    }
    if (!wasBlocked_) {
        pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    }
    errno = saved;
}

} // namespace platform
