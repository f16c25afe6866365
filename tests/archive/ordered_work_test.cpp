#include "archiver/ordered_work.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace archiver {

namespace {

struct Square {
    int number = 0;
    unsigned result = 0;
    void work()
    {
        // Some take longer than those that follow.
        for (int i = 0; i < number % 7 * 5000; ++i) {
            result = result * 31 + 7;
        }
        if (number == 300) {
            throw std::runtime_error("300");
        }
        result = static_cast<unsigned>(number * number);
    }
};

// Every result in the order of the tasks, the failure of one in its place; whatever is left is abandoned.
TEST(OrderedWorkTest, TakesInOrder)
{
    OrderedWork<Square> work;
    int taken = 0;
    std::string failure;
    const auto take = [&] {
        try {
            EXPECT_EQ(work.take().result, static_cast<unsigned>(taken * taken));
        } catch (const std::runtime_error& error) {
            failure = error.what();
            EXPECT_EQ(taken, 300);
        }
        ++taken;
    };
    for (int number = 0; number < 400; ++number) {
        if (work.isFull()) {
            take();
        }
        work.next().number = number;
        work.submit();
    }
    while (!work.isEmpty() && taken < 399) {
        take();
    }
    EXPECT_EQ(taken, 399);
    EXPECT_EQ(failure, "300");
}

TEST(ForEachInParallelTest, RunsEachOnceAndThrowsTheFailure)
{
    std::vector<int> runs(1000);
    forEachInParallel(runs.size(), [&](std::size_t number) { ++runs[number]; });
    EXPECT_EQ(runs, std::vector<int>(1000, 1));
    EXPECT_THROW(forEachInParallel(runs.size(),
                                   [](std::size_t number) {
                                       if (number == 5) {
                                           throw std::runtime_error("5");
                                       }
                                   }),
                 std::runtime_error);
}

} // namespace

} // namespace archiver
