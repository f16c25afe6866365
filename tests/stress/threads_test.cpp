// Many threads at once, as FileMaker Server's engines call.

#include "stress/mixed_calls.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace folidex::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int callers = 24;
constexpr unsigned fullCalls = 1'000'000;
#ifdef FOLIDEX_THREAD_SANITIZED
constexpr std::chrono::seconds shortRun(120); // the run that counts, several times slower than others
#else
constexpr std::chrono::seconds shortRun(20);
#endif
constexpr std::size_t heapTolerance =
    std::size_t{64} * 1024; // bytes; what the C library keeps for threads varies a little

struct Job {
    unsigned calls;
    Clock::time_point deadline;
};

// Runs the callers until the calls are made or the time is over; answers how many were.
unsigned runCallers(std::vector<MixedCalls>& mixes, const Job& job)
{
    std::atomic<unsigned> made = 0;
    std::vector<std::thread> threads;
    threads.reserve(mixes.size());
    for (std::size_t number = 0; number < mixes.size(); ++number) {
        threads.emplace_back([&, number] {
            for (unsigned round = 0; made < job.calls && Clock::now() < job.deadline; ++round) {
                // Rarely, for each takes a second and more, but two at once.
                made += number < 2 && round % 400 == 100 ? mixes[number].archiveRound() : mixes[number].round();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return made;
}

std::size_t heapInUse()
{
#ifdef FOLIDEX_SANITIZED
    return 0; // a sanitizer keeps freed memory
#else
    return mallinfo2().uordblks;
#endif
}

TEST(Threads, MixAllFunctions)
{
    const ScratchFolder scratch;
    prepareProcess(scratch);
    const PluginUnderTest plugin;
    std::vector<MixedCalls> mixes;
    for (int number = 0; number < callers; ++number) {
        mixes.emplace_back(plugin, scratch, number);
    }
    runCallers(mixes, {callers * 60, Clock::time_point::max()});
    const std::size_t heap = heapInUse();
    const std::size_t descriptors = openDescriptors();

    const Clock::time_point start = Clock::now();
    const bool full = isFullRun();
    const unsigned calls = runCallers(mixes, {fullCalls, full ? Clock::time_point::max() : start + shortRun});

    for (const MixedCalls& mix : mixes) {
        EXPECT_EQ(mix.faults(), "");
    }
    EXPECT_GE(calls, full ? fullCalls : callers * 40U);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_LT(heapInUse(), heap + heapTolerance);
    const std::chrono::duration<double> seconds = Clock::now() - start;
    std::printf("%u calls in %d threads, %.0f s; heap in use before %zu and after %zu bytes\n", calls, callers,
                seconds.count(), heap, heapInUse());
}

TEST(Threads, CallDifferentFunctionsEach)
{
    const ScratchFolder scratch;
    prepareProcess(scratch);
    scratch.write("folder/a.txt", "twelve bytes");
    const PluginUnderTest plugin;
    const int calls = isFullRun() ? 100'000 : 5'000;
    struct Part {
        const char* function;
        std::vector<fmxhost::Value> arguments;
        const char* wanted; // null: any answer but an error
    };
    const auto folder = scratch.text("folder");
    const auto file = scratch.text("folder/a.txt");
    const auto partOf = [&](int number) {
        const std::array<Part, 8> parts{{
            {"KORB_Version", {"short"}, "5.0.2.1"},
            {"KORB_GetLastError", {}, nullptr},
            {"KORB_GetFileSize", {file}, "12"},
            {"KORB_GetFileModificationDate", {file}, nullptr},
            {"KORB_GetFiles", {folder}, "a.txt"},
            {"KORB_GetFolderExists", {folder}, "0"},
            {"KORB_FileDelete", {folder}, "!!ERROR!!"},
            {"KORB_LogSet", {"no"}, "0"},
        }};
        return parts[static_cast<std::size_t>(number)];
    };
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([&, number] {
            const Part part = partOf(number); // a value belongs to one thread
            for (int call = 0; call < calls; ++call) {
                const Result result = plugin.call(part.function, part.arguments);
                const bool isRight = part.wanted != nullptr ? result.utf8() == part.wanted : !result.isError();
                wrong += isRight && !result.threw() ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

} // namespace
} // namespace folidex::test
