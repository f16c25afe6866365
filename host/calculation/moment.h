// Dates, times and timestamps as FileMaker makes them of other values. As numbers they are days, 1/1/0001 the first
// one, seconds, and seconds since that day began.
#pragma once

#include "host/calculation/number.h"

namespace fmxhost {

// The value as a date, a time or a timestamp; a text without a year is of this one.
// Errors: NoResult with "?" where the value can't be read as one, with an empty value where it is empty.
Value momentOf(const Value& value, fmx::Data::DataType type);

// The sum or the difference of two values in its type: a number of days or seconds moves a date, a time or a timestamp,
// two times or timestamps differ by a time, anything else is a number.
// Errors: NoResult beyond the calendar.
Value inTypeOf(const Value& left, const Value& right, const Number& result, bool isDifference);

// One that a function takes.
template <fmx::Data::DataType type>
struct Moment {
    explicit Moment(const Value& given) : value(momentOf(given, type)) {}
    const fmx::DateTime* operator->() const
    {
        return type == fmx::Data::kDTTime ? &value.data().GetAsTime() : &value.data().GetAsTimeStamp();
    }

    Value value;
};
using Date = Moment<fmx::Data::kDTDate>;
using Time = Moment<fmx::Data::kDTTime>;
using Timestamp = Moment<fmx::Data::kDTTimeStamp>;

} // namespace fmxhost
