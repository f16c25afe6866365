// What several threads may do at once; ThreadSanitizer is the judge of most of it.
#include "values.h"

#include <algorithm>
#include <atomic>
#include <barrier>
#include <functional>
#include <thread>

using fmxtest::text;
using fmxtest::units;

namespace {

constexpr int threadCount = 4;

void onThreads(const std::function<void(int)>& work)
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

TEST(Threads, ShareValuesAndTheirBuffers)
{
    for (int round = 0; round < 200; ++round) {
        fmx::DataUniquePtr data;
        data->SetAsNumber(*fmx::FixPtUniquePtr(90061));
        const auto original = text(u"shared by all");
        fmx::TextUniquePtr copies[threadCount];
        for (auto& copy : copies) {
            copy->SetText(*original);
        }
        const fmx::Text* seen[threadCount] = {};
        std::atomic<int> right = 0;
        onThreads([&](int n) {
            seen[n] = &data->GetAsText();
            right += units(*seen[n]) == u"90061" && data->GetAsTime().GetHour() == 25 &&
                     data->GetAsTimeStamp().GetDay() == 2 && data->GetAsDate().GetYear() == 247;
            copies[n]->AppendText(*original, 0, static_cast<fmx::uint32>(n));
            copies[n]->DeleteText(0, 7);
        });
        ASSERT_EQ(right, threadCount);
        ASSERT_EQ(std::count(std::begin(seen), std::end(seen), seen[0]), threadCount);
        ASSERT_EQ(units(*original), u"shared by all");
        ASSERT_EQ(units(*copies[3]), u"by allsha");
        data->SetAsText(*original, *fmx::LocaleUniquePtr());
        original->Uppercase();
        ASSERT_EQ(units(data->GetAsText()), u"shared by all");
    }
}

} // namespace
