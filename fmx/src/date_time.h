// What stands behind fmx::DateTime.
#pragma once

#include "entry.h"

#include <FMXDateTime.h>

#include <optional>

namespace fmxkit {

struct CivilDate {
    int year;
    int month; // 1 to 12
    int day;   // 1 to 31
};

struct DateTimeValue {
    static constexpr fmx::int64 microsPerSecond = 1'000'000;
    static constexpr fmx::int64 secondsPerDay = 86'400;
    static constexpr fmx::int64 microsPerDay = secondsPerDay * microsPerSecond;

    fmx::int32 day = 1;    // FileMaker's day number: 1/1/0001 is 1
    fmx::int64 micros = 0; // since midnight; only a duration is negative or a day and longer

    bool operator==(const DateTimeValue&) const = default;

    CivilDate date() const;
};

// Empty outside 1/1/0001 to 12/31/4000. Month and day may lie outside their usual range, and roll over.
std::optional<fmx::int32> dayNumber(int year, int month, int day);
bool isDayNumber(fmx::int64 day);

// `time` with whole days carried into the day; empty outside the calendar.
std::optional<DateTimeValue> withTime(fmx::int64 day, fmx::int64 hour, fmx::int64 minute, fmx::int64 second,
                                      fmx::int64 micros);

DateTimeValue localNow();

template <>
struct Behind<fmx::DateTime> {
    using Type = DateTimeValue;
};

} // namespace fmxkit
