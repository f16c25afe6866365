// FileMaker's conversions between the types of a value, with a US English system's formats.
#pragma once

#include "date_time.h"
#include "decimal.h"

#include <optional>
#include <string>
#include <string_view>

namespace fmxkit {

// A text's digits, wherever they stand; any minus sign makes it negative, its first point is the decimal point. Empty
// when the text has no digit, or too many for a number.
std::optional<FixPtValue> numberFromText(std::u16string_view text);

// "11/24/2026": month, day and year, apart by any of / - . and spaces. A year of two digits is the one from 70 years
// ago to 29 years ahead. The parts must be a day of the calendar as they stand.
std::optional<DateTimeValue> dateFromText(std::u16string_view text);
// "13:02:03", "1:02 PM", "-30:00:00.5": hours and minutes, then maybe seconds. A duration without AM or PM.
std::optional<DateTimeValue> timeFromText(std::u16string_view text);
// A date, then maybe a time of that day.
std::optional<DateTimeValue> timeStampFromText(std::u16string_view text);

std::u16string textFromNumber(const FixPtValue& number);          // ".5"
std::u16string textFromDate(const DateTimeValue& date);           // "11/24/2026"
std::u16string textFromTime(const DateTimeValue& time);           // "13:02:03.5"
std::u16string textFromTimeStamp(const DateTimeValue& timeStamp); // "11/24/2026 1:02:03 PM"

FixPtValue numberFromDate(const DateTimeValue& date);           // the day's number
FixPtValue numberFromTime(const DateTimeValue& time);           // seconds
FixPtValue numberFromTimeStamp(const DateTimeValue& timeStamp); // seconds since 1/1/0001 0:00:00

// Empty where the number names no day of the calendar, or a time of more than 2^31 hours.
std::optional<DateTimeValue> dateFromNumber(const FixPtValue& number);
std::optional<DateTimeValue> timeFromNumber(const FixPtValue& number);
std::optional<DateTimeValue> timeStampFromNumber(const FixPtValue& number);

} // namespace fmxkit
