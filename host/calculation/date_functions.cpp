#include "host/calculation/built_ins.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace fmxhost {
namespace {

using fmx::Data;

constexpr std::int64_t daysOfAWeek = 7;

// ---- Days by their numbers, as in FileMaker: 1/1/0001, a Monday, is 1.

std::int64_t firstOfYear(std::int64_t year)
{
    const fmx::DateTimeUniquePtr first;
    first->SetNormalizedDate(1, 1, static_cast<fmx::int16>(year));
    return first->GetDaysSinceEpoch();
}

// 1 for a Sunday to 7.
std::int64_t dayOfWeek(const Date& date)
{
    return date.value.integer() % daysOfAWeek + 1;
}

std::int64_t dayOfYear(const Date& date)
{
    return date.value.integer() - firstOfYear(date->GetYear()) + 1;
}

// Weeks begin on Sundays, the first one on January 1st.
std::int64_t weekOfYear(const Date& date)
{
    return (dayOfYear(date) - 1 + firstOfYear(date->GetYear()) % daysOfAWeek) / daysOfAWeek + 1;
}

// The first week is the one with at least four days in the year.
std::int64_t fiscalWeek(const Date& date, std::int64_t startingDay)
{
    const std::int64_t daysIn = (dayOfWeek(date) - startingDay % daysOfAWeek + daysOfAWeek) % daysOfAWeek;
    const Date middle(Value(date.value.integer() - daysIn + 3));
    return (dayOfYear(middle) - 1) / daysOfAWeek + 1;
}

// Months and days may lie outside their range.
Value dateOf(const Number& month, const Number& day, const Number& year)
{
    constexpr std::int64_t months = 12;
    const Number monthsBefore = floorOf(month) - 1;
    const Number yearOfMonth = floorOf(year) + floorOf(monthsBefore / months);
    if (yearOfMonth < 1 || !(yearOfMonth < 4001)) {
        throw NoResult{undefinedValue(Data::kDTDate)};
    }
    const fmx::DateTimeUniquePtr first;
    first->SetNormalizedDate(
        static_cast<fmx::int16>((monthsBefore - floorOf(monthsBefore / months) * months + 1).integer()), 1,
        static_cast<fmx::int16>(yearOfMonth.integer()));
    return momentOf(floorOf(day) + first->GetDaysSinceEpoch() - 1, Data::kDTDate);
}

Value timestampOf(const Date& date, const Time& time)
{
    constexpr std::int64_t secondsOfADay = 86400;
    return momentOf((Number(date.value) - 1) * secondsOfADay + Number(time.value), Data::kDTTimeStamp);
}

Number secondsOf(const Time& time)
{
    return Number(std::int64_t{time->GetSec()}) + Number(std::int64_t{time->GetUSec()}) / 1000000;
}

constexpr std::u16string_view dayNames[] = {u"Sunday",   u"Monday", u"Tuesday", u"Wednesday",
                                            u"Thursday", u"Friday", u"Saturday"};
constexpr std::u16string_view monthNames[] = {u"January",   u"February", u"March",    u"April",
                                              u"May",       u"June",     u"July",     u"August",
                                              u"September", u"October",  u"November", u"December"};

} // namespace

std::vector<Function> dateFunctions()
{
    return {
        row(u"Date ( month ; day ; year )",
            u"A date; month 13 is the next January, day 0 the last of the month before.", dateOf),
        row(u"Day ( date )", u"The day of the month.", [](const Date& date) { return std::int32_t{date->GetDay()}; }),
        row(u"DayName ( date )", u"Sunday to Saturday.",
            [](const Date& date) { return dayNames[static_cast<std::size_t>(dayOfWeek(date)) - 1]; }),
        row(u"DayOfWeek ( date )", u"1 for a Sunday to 7 for a Saturday.", dayOfWeek),
        row(u"DayOfYear ( date )", u"1 for January 1st.", dayOfYear),
        row(u"GetAsDate ( data )", u"A text, a timestamp or a number of days as a date.",
            [](const Date& date) { return date.value; }),
        row(u"GetAsTime ( data )", u"A text, a timestamp or a number of seconds as a time.",
            [](const Time& time) { return time.value; }),
        row(u"GetAsTimestamp ( data )", u"A text, a date or a number of seconds as a timestamp.",
            [](const Timestamp& timestamp) { return timestamp.value; }),
        row(u"Hour ( time )", u"The hours of a time.", [](const Time& time) { return std::int32_t{time->GetHour()}; }),
        row(u"Minute ( time )", u"The minutes of a time.",
            [](const Time& time) { return std::int32_t{time->GetMinute()}; }),
        row(u"Month ( date )", u"1 for January to 12.",
            [](const Date& date) { return std::int32_t{date->GetMonth()}; }),
        row(u"MonthName ( date )", u"January to December.",
            [](const Date& date) { return monthNames[static_cast<std::size_t>(date->GetMonth()) - 1]; }),
        row(u"Seconds ( time )", u"The seconds of a time.", secondsOf),
        row(u"Time ( hours ; minutes ; seconds )", u"A time; parts beyond their range count on.",
            [](const Number& hours, const Number& minutes, const Number& seconds) {
                return momentOf((hours * 60 + minutes) * 60 + seconds, Data::kDTTime);
            }),
        row(u"Timestamp ( date ; time )", u"A date and a time of that day as one.", timestampOf),
        row(u"WeekOfYear ( date )", u"Weeks begin on Sundays, week 1 on January 1st.", weekOfYear),
        row(u"WeekOfYearFiscal ( date ; startingDay )",
            u"Weeks begin on this day, 1 for a Sunday; week 1 is the first one with four days of the year.",
            fiscalWeek),
        row(u"Year ( date )", u"The year of a date.", [](const Date& date) { return std::int32_t{date->GetYear()}; }),
    };
}

} // namespace fmxhost
