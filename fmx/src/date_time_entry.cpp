#include "date_time.h"
#include "entry.h"
#include "error_codes.h"

#include <FMXDateTime.h>

using fmx::DateTime;
using fmxkit::DateTimeValue;
using fmxkit::entry;
using fmxkit::inside;

namespace {

// The time's part of one unit: how many of `unit` microseconds there are beyond whole groups of `group`; 0: no groups.
template <typename Result>
Result timePart(const DateTime* self, fmx::int64 unit, fmx::int64 group)
{
    const fmx::int64 count = inside(self).micros / unit;
    return static_cast<Result>(group == 0 ? count : count % group);
}

constexpr fmx::int64 second = DateTimeValue::microsPerSecond;

} // namespace

namespace fmx {
extern "C" {

DateTime* FM_DateTime_Constructor1(_fmxcpt& x)
{
    return fmxkit::create<DateTime>(x);
}

void FM_DateTime_Delete(DateTime* self, _fmxcpt& x)
{
    fmxkit::destroy(self, x);
}

void FM_DateTime_Now(DateTime* self, _fmxcpt& x)
{
    entry(x, [&] { inside(self) = fmxkit::localNow(); });
}

errcode FM_DateTime_SetNormalizedDate1(DateTime* self, int16 month, int16 day, int16 year, _fmxcpt& x)
{
    return entry(x, [&] {
        const auto number = fmxkit::dayNumber(year, month, day);
        inside(self).day = number.value_or(inside(self).day);
        return number ? fmxkit::noError : fmxkit::invalidDate;
    });
}

errcode FM_DateTime_SetNormalizedTime1(DateTime* self, int64 hour, int16 minute, int16 sec, int32 microseconds,
                                       _fmxcpt& x)
{
    return entry(x, [&] {
        const auto value = fmxkit::withTime(inside(self).day, hour, minute, sec, microseconds);
        inside(self) = value.value_or(inside(self));
        return value ? fmxkit::noError : fmxkit::invalidTime;
    });
}

int16 FM_DateTime_GetYear(const DateTime* self, _fmxcpt& x)
{
    return entry(x, [&] { return static_cast<int16>(inside(self).date().year); });
}

int16 FM_DateTime_GetMonth(const DateTime* self, _fmxcpt& x)
{
    return entry(x, [&] { return static_cast<int16>(inside(self).date().month); });
}

int16 FM_DateTime_GetDay(const DateTime* self, _fmxcpt& x)
{
    return entry(x, [&] { return static_cast<int16>(inside(self).date().day); });
}

int32 FM_DateTime_GetHour(const DateTime* self, _fmxcpt& x)
{
    return entry(x, [&] { return timePart<int32>(self, 3600 * second, 0); });
}

int16 FM_DateTime_GetMinute(const DateTime* self, _fmxcpt& x)
{
    return entry(x, [&] { return timePart<int16>(self, 60 * second, 60); });
}

int16 FM_DateTime_GetSec(const DateTime* self, _fmxcpt& x)
{
    return entry(x, [&] { return timePart<int16>(self, second, 60); });
}

int32 FM_DateTime_GetUSec(const DateTime* self, _fmxcpt& x)
{
    return entry(x, [&] { return timePart<int32>(self, 1, second); });
}

int32 FM_DateTime_GetDaysSinceEpoch(const DateTime* self, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self).day; });
}

bool FM_DateTime_operatorEQ(const DateTime* self, const DateTime& that, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self) == inside(&that); });
}

bool FM_DateTime_operatorNE(const DateTime* self, const DateTime& that, _fmxcpt& x)
{
    return entry(x, [&] { return inside(self) != inside(&that); });
}

} // extern "C"
} // namespace fmx
