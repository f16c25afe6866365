#include "values.h"

#include <gtest/gtest.h>

#include <array>
#include <ctime>
#include <limits>

using fmx::DateTimeUniquePtr;
using fmx::int16;
using fmxtest::shown;

namespace {

TEST(DateTime, RollsDatesOver)
{
    const struct {
        int16 month, day, year;
        std::string_view expected;
        fmx::int32 dayNumber;
    } cases[] = {
        {11, 24, 2026, "11/24/2026 12:00:00 AM", 739944},
        {13, 1, 2025, "1/1/2026 12:00:00 AM", 739617},
        {0, 1, 2026, "12/1/2025 12:00:00 AM", 739586},
        {-11, 1, 2026, "1/1/2025 12:00:00 AM", 739252},
        {3, 0, 2024, "2/29/2024 12:00:00 AM", 738945},
        {3, 0, 1900, "2/28/1900 12:00:00 AM", 693654},
        {1, -364, 2026, "1/1/2025 12:00:00 AM", 739252},
        {1, 366, 2025, "1/1/2026 12:00:00 AM", 739617},
        {12, 31, 1969, "12/31/1969 12:00:00 AM", 719162},
        {1, 1, 1, "1/1/0001 12:00:00 AM", 1},
        {13, 1, 0, "1/1/0001 12:00:00 AM", 1},
        {12, 31, 4000, "12/31/4000 12:00:00 AM", 1460970},
    };
    for (const auto& [month, day, year, expected, dayNumber] : cases) {
        DateTimeUniquePtr value;
        EXPECT_EQ(value->SetNormalizedDate(month, day, year), 0);
        EXPECT_EQ(shown(*value), expected);
        EXPECT_EQ(value->GetDaysSinceEpoch(), dayNumber) << expected;
    }
}

TEST(DateTime, RollsTimesOver)
{
    const struct {
        fmx::int64 hour;
        int16 minute, second;
        fmx::int32 micros;
        std::string_view expected;
    } cases[] = {
        {0, 0, 0, 0, "3/1/2024 12:00:00 AM"},        {12, 0, 0, 0, "3/1/2024 12:00:00 PM"},
        {23, 59, 59, 0, "3/1/2024 11:59:59 PM"},     {25, 0, 0, 0, "3/2/2024 1:00:00 AM"},
        {10, -1, 75, 0, "3/1/2024 10:00:15 AM"},     {0, 0, -1, 0, "2/29/2024 11:59:59 PM"},
        {-24, 0, 0, 0, "2/29/2024 12:00:00 AM"},     {0, 0, 0, -1, "2/29/2024 11:59:59.999999 PM"},
        {1, 2, 3, 2500000, "3/1/2024 1:02:05.5 AM"}, {8784, 0, 0, 0, "3/2/2025 12:00:00 AM"},
    };
    for (const auto& [hour, minute, second, micros, expected] : cases) {
        DateTimeUniquePtr value;
        value->SetNormalizedDate(3, 1, 2024);
        EXPECT_EQ(value->SetNormalizedTime(hour, minute, second, micros), 0);
        EXPECT_EQ(shown(*value), expected);
    }
}

TEST(DateTime, RefusesWhatLiesOutsideTheCalendar)
{
    DateTimeUniquePtr value;
    value->SetNormalizedDate(7, 4, 1776);
    value->SetNormalizedTime(6, 7, 8, 9);
    for (const auto& [month, day, year] :
         {std::array<int16, 3>{12, 31, 0}, {1, 0, 1}, {13, 1, 4000}, {1, 1, 4001}, {1, 1, -32768}, {32767, 1, 32767}}) {
        EXPECT_EQ(value->SetNormalizedDate(month, day, year), 500);
    }
    using Limits = std::numeric_limits<fmx::int64>;
    for (const fmx::int64 hour : {Limits::max(), Limits::min(), fmx::int64{24} * 1'000'000}) {
        EXPECT_EQ(value->SetNormalizedTime(hour == 24'000'000 ? -hour : hour, 0, 0), 501);
    }
    EXPECT_EQ(value->GetYear(), 1776);
    EXPECT_EQ(value->GetMonth(), 7);
    EXPECT_EQ(value->GetDay(), 4);
    EXPECT_EQ(value->GetHour(), 6);
    EXPECT_EQ(value->GetMinute(), 7);
    EXPECT_EQ(value->GetSec(), 8);
    EXPECT_EQ(value->GetUSec(), 9);
}

TEST(DateTime, ComparesAndKnowsNow)
{
    DateTimeUniquePtr a;
    DateTimeUniquePtr b;
    EXPECT_TRUE(*a == *b);
    a->SetNormalizedTime(24, 0, 0);
    b->SetNormalizedDate(1, 2, 1);
    EXPECT_TRUE(*a == *b);
    b->SetNormalizedTime(0, 0, 0, 1);
    EXPECT_TRUE(*a != *b);

    const auto localDay = [] {
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        localtime_r(&now, &local);
        return std::array{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour};
    };
    const auto before = localDay();
    a->Now();
    const std::array now{int{a->GetYear()}, int{a->GetMonth()}, int{a->GetDay()}, int{a->GetHour()}};
    EXPECT_LE(before, now);
    EXPECT_LE(now, localDay());
}

} // namespace
