#include "values.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

using fmx::FixPtUniquePtr;
using fmxtest::number;
using fmxtest::shown;

namespace {

TEST(FixPt, TakesDoublesByTheirShortestDecimal)
{
    const struct {
        double value;
        int precision;
        std::string_view expected;
    } cases[] = {
        {0.0, 16, "0"},
        {-0.0, 16, "0"},
        {0.1, 16, ".1"},
        {0.1 + 0.2, 16, ".3"},
        {0.1 + 0.2, 17, ".30000000000000004"},
        {-1.5, 16, "-1.5"},
        {2.5, 0, "3"},
        {-2.5, 0, "-3"},
        {0.04, 1, "0"},
        {0.05, 1, ".1"},
        {99.995, 2, "100"},
        {9007199254740991.0, 16, "9007199254740991"},
        {9007199254740992.0, 16, "9007199254740992"},
        {1e22, 16, "10000000000000000000000"},
        {1e-16, 16, ".0000000000000001"},
        {1e-17, 16, "0"},
        {5e-17, 16, ".0000000000000001"},
        {123456789.125, 16, "123456789.125"},
    };
    for (const auto& [value, precision, expected] : cases) {
        FixPtUniquePtr result(0, precision);
        result->AssignDouble(value);
        EXPECT_EQ(shown(*result), expected) << value;
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

TEST(FixPt, KeepsAndCutsWholeNumbers)
{
    using Limits32 = std::numeric_limits<fmx::int32>;
    using Limits64 = std::numeric_limits<fmx::int64>;
    const struct {
        std::u16string_view digits;
        fmx::int32 asLong;
        fmx::int64 asLong64;
        bool asBool;
    } cases[] = {
        {u"0", 0, 0, false},
        {u"0.9", 0, 0, true},
        {u"-12.99", -12, -12, true},
        {u"2147483648", Limits32::max(), 2147483648, true},
        {u"-2147483649", Limits32::min(), -2147483649, true},
        {u"9223372036854775807.9", Limits32::max(), Limits64::max(), true},
        {u"9223372036854775808", Limits32::max(), Limits64::max(), true},
        {u"-9223372036854775808", Limits32::min(), Limits64::min(), true},
        {u"-99999999999999999999", Limits32::min(), Limits64::min(), true},
    };
    for (const auto& c : cases) {
        const auto value = number(c.digits);
        EXPECT_EQ(value->AsLong(), c.asLong);
        EXPECT_EQ(value->AsLong64(), c.asLong64);
        EXPECT_EQ(value->AsBool(), c.asBool);
    }
    for (const fmx::int64 whole : {Limits64::min(), Limits64::max(), fmx::int64{0}, fmx::int64{-1}}) {
        FixPtUniquePtr value;
        value->AssignInt64(whole);
        EXPECT_EQ(value->AsLong64(), whole);
        EXPECT_EQ(shown(*value), std::to_string(whole));
    }
}

TEST(FixPt, Calculates)
{
    const struct {
        std::u16string_view a, b;
        int precision;
        std::string_view sum, difference, product, quotient;
    } cases[] = {
        {u"1", u"3", 16, "4", "-2", "3", ".3333333333333333"},
        {u"2", u"3", 5, "5", "-1", "6", ".66667"},
        {u"-2", u"3", 30, "1", "-5", "-6", "-.666666666666666666666666666667"},
        {u"100", u"3", 16, "103", "97", "300", "33.3333333333333333"},
        {u"999.99", u".01", 2, "1000", "999.98", "10", "99999"},
        {u"-.5", u"-.25", 1, "-.8", "-.3", ".1", "2"},
        {u"1000000000000000000000", u"-1", 0, "999999999999999999999", "1000000000000000000001",
         "-1000000000000000000000", "-1000000000000000000000"},
        {u"1", u"1000", 2, "1001", "-999", "1000", "0"},
        {u"5", u"1000", 2, "1005", "-995", "5000", ".01"},
        {u"0", u"7", 16, "7", "-7", "0", "0"},
        {u".000000000000000000012", u".4", 3, ".4", "-.4", "0", "0"},
    };
    for (const auto& c : cases) {
        const auto a = number(c.a);
        const auto b = number(c.b);
        FixPtUniquePtr result(0, c.precision);
        a->Add(*b, *result);
        EXPECT_EQ(shown(*result), c.sum);
        a->Subtract(*b, *result);
        EXPECT_EQ(shown(*result), c.difference);
        a->Multiply(*b, *result);
        EXPECT_EQ(shown(*result), c.product);
        EXPECT_EQ(a->Divide(*b, *result), 0);
        EXPECT_EQ(shown(*result), c.quotient);
    }
    FixPtUniquePtr kept(7);
    EXPECT_EQ(kept->Divide(*FixPtUniquePtr(0), *kept), 1218);
    EXPECT_EQ(kept->AsLong(), 7);
    kept->Multiply(*kept, *kept);
    EXPECT_EQ(kept->AsLong(), 49);
}

TEST(FixPt, ArithmeticIsConsistent)
{
    std::mt19937_64 random(11);
    for (int i = 0; i < 500; ++i) {
        FixPtUniquePtr a(0, 40);
        FixPtUniquePtr b(0, 40);
        a->AssignInt64(static_cast<fmx::int64>(random()) >> (random() % 60));
        b->AssignInt64((static_cast<fmx::int64>(random()) >> (random() % 60)) | 1);
        FixPtUniquePtr product(0, 40);
        FixPtUniquePtr back(0, 40);
        a->Multiply(*b, *product);
        ASSERT_EQ(product->Divide(*b, *back), 0);
        ASSERT_EQ(*back, *a);
        a->Add(*b, *back);
        back->Subtract(*a, *back);
        ASSERT_EQ(*back, *b);
    }
}

TEST(FixPt, HasAPrecisionOfItsOwn)
{
    FixPtUniquePtr value(3);
    EXPECT_EQ(value->GetPrecision(), 16);
    FixPtUniquePtr same(0, *number(u"1.12345678901234567890123"));
    EXPECT_EQ(same->GetPrecision(), 23);
    same->AssignFixPt(*number(u"2.5"));
    EXPECT_EQ(same->GetPrecision(), 23);
    value->AssignDouble(1.255);
    value->SetPrecision(2);
    EXPECT_EQ(shown(*value), "1.26");
    EXPECT_EQ(FixPtUniquePtr(1, -5)->GetPrecision(), 0);
    EXPECT_EQ(FixPtUniquePtr(1, 4000)->GetPrecision(), 400);

    const auto largest = number(std::u16string(400, u'9'));
    EXPECT_EQ(shown(*largest), std::string(400, '9'));
    EXPECT_THROW(largest->Increment(1), std::exception);
    EXPECT_THROW(largest->Multiply(*largest, *value), std::exception);
    EXPECT_EQ(shown(*value), "1.26");
}

TEST(FixPt, CountsAndCompares)
{
    FixPtUniquePtr value(10, 2);
    value->Increment(5);
    value->Decrement(20);
    EXPECT_EQ(value->AsLong(), -5);
    value->Negate();
    value->Increment64(9223372036854775807);
    EXPECT_EQ(shown(*value), "9223372036854775812");
    value->Decrement64(9223372036854775807);
    EXPECT_TRUE(*value == *number(u"5.00"));

    const std::u16string_view ascending[] = {u"-10", u"-9.5", u"-.01", u"0", u".00000000000000000001", u"9", u"10"};
    for (std::size_t i = 0; i < std::size(ascending); ++i) {
        for (std::size_t j = 0; j < std::size(ascending); ++j) {
            const auto a = number(ascending[i]);
            const auto b = number(ascending[j]);
            EXPECT_EQ(*a == *b, i == j);
            EXPECT_EQ(*a != *b, i != j);
            EXPECT_EQ(*a < *b, i < j);
            EXPECT_EQ(*a <= *b, i <= j);
            EXPECT_EQ(*a > *b, i > j);
            EXPECT_EQ(*a >= *b, i >= j);
        }
    }
}

} // namespace
