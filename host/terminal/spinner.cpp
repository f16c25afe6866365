#include "host/terminal/spinner.h"

#include "host/terminal/terminal.h"

#include <csignal>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <string_view>

namespace fmxhost {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds delay{1000};
constexpr std::chrono::milliseconds period{100};
constexpr std::array<std::string_view, 10> frames{"⠋", "⠙", "⠹", "⠸", "⠼", "⠴", "⠦", "⠧", "⠇", "⠏"};
constexpr std::string_view eraseLine = "\r\033[K";
constexpr std::string_view wayOut = "  A function can't be broken off; Ctrl-\\ ends fmxhost.";

// Without a buffer between: the plug-in may write to the terminal too. A terminal that is gone is no reason to stop.
void show(std::string_view text)
{
    if (::write(STDERR_FILENO, text.data(), text.size()) < 0) {
        return;
    }
}

} // namespace

Spinner::Spinner()
{
    if (!isCapableTerminal(STDERR_FILENO)) {
        return;
    }
    // Signals belong to the thread that calls the plug-in.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Spinner::~Spinner()
{
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::scoped_lock lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void Spinner::run()
{
    const auto start = Clock::now();
    std::unique_lock lock(mutex_);
    const auto stopsWithin = [&](std::chrono::milliseconds time) {
        return changed_.wait_for(lock, time, [this] { return stopping_; });
    };
    if (stopsWithin(delay)) {
        return;
    }
    std::size_t frame = 0;
    do {
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        std::array<char, 40> time{};
        std::snprintf(time.data(), time.size(), " %.1f s", seconds);
        show(std::string(eraseLine)
                 .append(frames[frame++ % frames.size()])
                 .append(time.data())
                 .append(InterruptShield::wasHit() ? wayOut : ""));
    } while (!stopsWithin(period));
    show(eraseLine);
}

} // namespace fmxhost
