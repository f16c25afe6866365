// How FileMaker's own functions are written: a row in the table of their subject, with a function that takes as many
// arguments as they have, in the types that it needs.
#pragma once

#include "host/calculation/functions.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace fmxhost {

// The value as a date, a time or a timestamp; a text without a year is of this one.
// Errors: NoResult with "?" where the value can't be read as one, with an empty value where it is empty.
Value momentOf(const Value& value, fmx::Data::DataType type);

// The sum or the difference of two values in its type: a number of days or seconds moves a date, a time or a timestamp,
// two times or timestamps differ by a time, anything else is a number.
// Errors: NoResult beyond the calendar.
Value inTypeOf(const Value& left, const Value& right, const Value& result, bool isDifference);

Value floorOf(const Value& number);
Value power(const Value& base, const Value& exponent);

// ---- Types of arguments. Others are Value, std::u16string and std::int64_t.

// 0 for a negative number.
struct Count {
    explicit Count(const Value& given) : value(static_cast<std::size_t>(std::max<std::int64_t>(0, given.integer()))) {}
    operator std::size_t() const { return value; }

    std::size_t value;
};

// As numbers they are days, 1/1/0001 the first one, seconds, and seconds since that day began.
template <fmx::Data::DataType kind>
struct Moment : Value {
    explicit Moment(const Value& given) : Value(momentOf(given, kind)) {}
    const fmx::DateTime* operator->() const
    {
        return kind == fmx::Data::kDTTime ? &data().GetAsTime() : &data().GetAsTimeStamp();
    }
};
using Date = Moment<fmx::Data::kDTDate>;
using Time = Moment<fmx::Data::kDTTime>;
using Timestamp = Moment<fmx::Data::kDTTimeStamp>;

// ---- Rows and tables

template <typename Result, typename... Parameters>
Function typedRow(std::u16string_view prototype, const std::function<Result(Parameters...)>& function)
{
    return [&]<std::size_t... index>(std::index_sequence<index...>)->Function
    {
        return {prototype, sizeof...(index), sizeof...(index),
                [function]([[maybe_unused]] const Arguments& arguments) -> Value {
                    return function(std::decay_t<Parameters>(arguments[index])...);
                }};
    }
    (std::index_sequence_for<Parameters...>());
}

template <typename Callable>
Function row(std::u16string_view prototype, const Callable& function)
{
    return typedRow(prototype, std::function(function));
}

std::vector<Function> dateFunctions();
std::vector<Function> jsonFunctions();
std::vector<Function> listFunctions();
std::vector<Function> numberFunctions();
std::vector<Function> textFunctions();

} // namespace fmxhost
