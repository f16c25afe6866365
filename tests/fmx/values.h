// Shorthand for the values that the kit's tests work with, and the cases of cases.txt.
#pragma once

#include <FMWrapper.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace fmxtest {

// The fields of each case under a heading, without the blanks around them.
std::vector<std::vector<std::string>> cases(const std::string& heading);

fmx::TextUniquePtr text(std::u16string_view units);
fmx::TextUniquePtr text(const std::string& utf8);
fmx::DataUniquePtr textData(const std::string& utf8, fmx::Data::DataType type = fmx::Data::kDTText);
// A number read from its digits, with their precision or 16.
fmx::FixPtUniquePtr number(const std::string& digits);

std::u16string units(const fmx::Text& value);
std::string utf8(const fmx::Text& value);
// As FileMaker would show it.
std::string shown(const fmx::FixPt& number);
std::string shown(const fmx::DateTime& timeStamp);

// The six comparisons of two values of one type, whose order is that of i and j.
template <typename Value>
void expectOrder(const Value& a, const Value& b, std::size_t i, std::size_t j)
{
    EXPECT_EQ(a == b, i == j);
    EXPECT_EQ(a != b, i != j);
    EXPECT_EQ(a < b, i < j);
    EXPECT_EQ(a <= b, i <= j);
    EXPECT_EQ(a > b, i > j);
    EXPECT_EQ(a >= b, i >= j);
}

} // namespace fmxtest
