#include "date_time.h"

#include <chrono>
#include <ctime>
#include <limits>

namespace fmxkit {
namespace {

constexpr int firstYear = 1;
constexpr int lastYear = 4000;

constexpr std::chrono::sys_days dayBefore =
    std::chrono::sys_days(std::chrono::year(firstYear) / 1 / 1) - std::chrono::days(1);
constexpr fmx::int64 lastDay = (std::chrono::sys_days(std::chrono::year(lastYear) / 12 / 31) - dayBefore).count();

constexpr fmx::int64 floorDivision(fmx::int64 dividend, fmx::int64 divisor)
{
    return dividend / divisor - (dividend % divisor < 0 ? 1 : 0);
}

} // namespace

CivilDate DateTimeValue::date() const
{
    const std::chrono::year_month_day civil(dayBefore + std::chrono::days(day));
    return {int(civil.year()), static_cast<int>(unsigned(civil.month())), static_cast<int>(unsigned(civil.day()))};
}

bool isDayNumber(fmx::int64 day)
{
    return day >= 1 && day <= lastDay;
}

std::optional<fmx::int32> dayNumber(int year, int month, int day)
{
    const auto yearsOver = static_cast<int>(floorDivision(month - 1, 12));
    const auto monthOfYear = static_cast<unsigned>(month - yearsOver * 12);
    const int actualYear = year + yearsOver;
    if (actualYear < std::numeric_limits<fmx::int16>::min() || actualYear > std::numeric_limits<fmx::int16>::max()) {
        return std::nullopt; // beyond std::chrono::year
    }
    const std::chrono::sys_days first = std::chrono::year(actualYear) / std::chrono::month(monthOfYear) / 1;
    const fmx::int64 number = (first - dayBefore).count() + day - 1;
    return isDayNumber(number) ? std::optional(static_cast<fmx::int32>(number)) : std::nullopt;
}

std::optional<DateTimeValue> withTime(fmx::int64 day, fmx::int64 hour, fmx::int64 minute, fmx::int64 second,
                                      fmx::int64 micros)
{
    // Days first: the hours alone may be too many for a count of microseconds.
    const fmx::int64 daysOfHours = floorDivision(hour, 24);
    const fmx::int64 hourOfDay = (hour % 24 + 24) % 24;
    const fmx::int64 seconds = hourOfDay * 3600 + minute * 60 + second;
    const fmx::int64 all = seconds * DateTimeValue::microsPerSecond + micros;
    const fmx::int64 daysOfRest = floorDivision(all, DateTimeValue::microsPerDay);
    const fmx::int64 newDay = day + daysOfHours + daysOfRest;
    if (!isDayNumber(newDay)) {
        return std::nullopt;
    }
    return DateTimeValue{static_cast<fmx::int32>(newDay), all - daysOfRest * DateTimeValue::microsPerDay};
}

DateTimeValue localNow()
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(now - std::chrono::system_clock::from_time_t(seconds))
            .count();
    std::tm local{};
    localtime_r(&seconds, &local);
    const auto day = dayNumber(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
    return withTime(day.value(), local.tm_hour, local.tm_min, local.tm_sec, micros).value();
}

} // namespace fmxkit
