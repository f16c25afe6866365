// What several threads may do at once; ThreadSanitizer is the judge of most of it.
#include "values.h"

#include <fmxkit/registry.h>

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>
#include <vector>

using fmxtest::text;
using fmxtest::units;

namespace {

constexpr int threadCount = 4;

template <typename Work>
void onThreads(Work&& work)
{
    std::barrier start(threadCount);
    std::vector<std::thread> threads;
    for (int n = 0; n < threadCount; ++n) {
        threads.emplace_back([&, n] {
            start.arrive_and_wait();
            work(n);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(Threads, AskForTheFormsOfOneValue)
{
    for (int round = 0; round < 200; ++round) {
        fmx::DataUniquePtr data;
        data->SetAsNumber(*fmx::FixPtUniquePtr(90061));
        const fmx::Text* seen[threadCount] = {};
        std::atomic<int> right = 0;
        onThreads([&](int n) {
            const fmx::Data& shared = *data;
            seen[n] = &shared.GetAsText();
            right += units(*seen[n]) == u"90061" && shared.GetAsTime().GetHour() == 25 &&
                     shared.GetAsTimeStamp().GetDay() == 2 && shared.GetAsDate().GetYear() == 247;
        });
        ASSERT_EQ(right, threadCount);
        for (const fmx::Text* one : seen) {
            ASSERT_EQ(one, seen[0]);
        }
    }
}

TEST(Threads, ChangeTextsThatShareABuffer)
{
    for (int round = 0; round < 200; ++round) {
        const auto original = text(u"shared by all");
        fmx::TextUniquePtr copies[threadCount];
        for (auto& copy : copies) {
            copy->SetText(*original);
        }
        onThreads([&](int n) {
            copies[n]->AppendText(*original, 0, static_cast<fmx::uint32>(n));
            copies[n]->DeleteText(0, 7);
        });
        ASSERT_EQ(units(*original), u"shared by all");
        ASSERT_EQ(units(*copies[3]), u"by allsha");
    }
}

TEST(Threads, RegisterAtOnce)
{
    const fmx::QuadCharUniquePtr plugin('T', 'H', 'R', 'D');
    std::atomic<int> accepted = 0;
    onThreads([&](int) {
        for (short id = 0; id < 100; ++id) {
            const auto name = text(u"Function_" + std::u16string(static_cast<std::size_t>(id) + 1, u'x'));
            accepted += fmx::ExprEnv::RegisterExternalFunction(*plugin, id, *name, *name, 0, 0, 0,
                                                               [](short, const fmx::ExprEnv&, const fmx::DataVect&,
                                                                  fmx::Data&) { return fmx::errcode(); }) == 0;
            fmxkit::externalFunctions();
        }
    });
    EXPECT_EQ(accepted, 100);
    EXPECT_EQ(fmxkit::purge(plugin->GetMacType()), 100U);
}

} // namespace
