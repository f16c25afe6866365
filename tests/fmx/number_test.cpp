#include "values.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

using fmx::FixPtUniquePtr;
using fmxtest::cases;
using fmxtest::number;
using fmxtest::shown;

namespace {

TEST(FixPt, TakesDoublesByTheirShortestDecimal)
{
    for (const auto& c : cases("doubles as numbers")) {
        FixPtUniquePtr result(0, std::stoi(c[1]));
        result->AssignDouble(std::stod(c[0]));
        EXPECT_EQ(shown(*result), c[2]) << c[0];
    }
    FixPtUniquePtr kept(7);
    for (const double value : {std::nan(""), HUGE_VAL, -HUGE_VAL}) {
        EXPECT_THROW(kept->AssignDouble(value), std::exception);
    }
    EXPECT_EQ(kept->AsLong(), 7);
    std::mt19937_64 random(5);
    FixPtUniquePtr precise(0, 400);
    for (int i = 0; i < 1000; ++i) {
        const double value = std::ldexp(static_cast<double>(random()), static_cast<int>(random() % 1500) - 800);
        if (value == 0 || (value > 1e-300 && std::isfinite(value))) {
            precise->AssignDouble(value);
            ASSERT_EQ(precise->AsFloat(), value);
        }
    }
}

TEST(FixPt, CutsWholeNumbers)
{
    for (const auto& c : cases("numbers as integers")) {
        const auto value = number(c[0]);
        EXPECT_EQ(std::to_string(value->AsLong()), c[1]);
        EXPECT_EQ(std::to_string(value->AsLong64()), c[2]);
        EXPECT_EQ(value->AsBool(), c[0] != "0");
    }
    using Limits = std::numeric_limits<fmx::int64>;
    for (const fmx::int64 whole : {Limits::min(), Limits::max(), fmx::int64{0}, fmx::int64{-1}}) {
        FixPtUniquePtr value;
        value->AssignInt64(whole);
        EXPECT_EQ(value->AsLong64(), whole);
        EXPECT_EQ(shown(*value), std::to_string(whole));
    }
}

TEST(FixPt, HasAPrecisionOfItsOwn)
{
    FixPtUniquePtr value(3);
    EXPECT_EQ(value->GetPrecision(), 16);
    FixPtUniquePtr same(0, *number("1.12345678901234567890123"));
    EXPECT_EQ(same->GetPrecision(), 23);
    same->AssignFixPt(*number("2.5"));
    EXPECT_EQ(same->GetPrecision(), 23);
    value->AssignDouble(1.255);
    value->SetPrecision(2);
    EXPECT_EQ(shown(*value), "1.26");
    FixPtUniquePtr one(0, 1);
    number("-.5")->Add(*number("-.25"), *one);
    EXPECT_EQ(shown(*one), "-.8");
    number("5")->Divide(*number("1000"), *value);
    EXPECT_EQ(shown(*value), ".01");
    EXPECT_EQ(one->Divide(*FixPtUniquePtr(0), *value), 1218);
    EXPECT_EQ(FixPtUniquePtr(1, -5)->GetPrecision(), 0);
    EXPECT_EQ(FixPtUniquePtr(1, 4000)->GetPrecision(), 400);
    const auto largest = number(std::string(400, '9'));
    EXPECT_EQ(shown(*largest), std::string(400, '9'));
    EXPECT_THROW(largest->Increment(1), std::exception);
    EXPECT_THROW(largest->Multiply(*largest, *value), std::exception);
    EXPECT_EQ(shown(*value), ".01");
}

TEST(FixPt, CountsAndCompares)
{
    FixPtUniquePtr value(10, 2);
    value->Increment(5);
    value->Decrement(20);
    value->Negate();
    value->Increment64(9223372036854775807);
    EXPECT_EQ(shown(*value), "9223372036854775812");
    value->Decrement64(9223372036854775807);
    EXPECT_TRUE(*value == *number("5.00"));
    value->AssignInt(-3);
    EXPECT_EQ(value->AsLong(), -3);

    const char* const ascending[] = {"-10", "-9.5", "-.01", "0", ".00000000000000000001", "9", "10"};
    for (std::size_t i = 0; i < std::size(ascending); ++i) {
        for (std::size_t j = 0; j < std::size(ascending); ++j) {
            fmxtest::expectOrder(*number(ascending[i]), *number(ascending[j]), i, j);
        }
    }
}

} // namespace
