// Dates and times of day.
#pragma once

#include "FMXTypes.h"

#include <memory>

namespace fmx {

class DateTime;

extern "C" {
FMX_API DateTime* FM_DateTime_Constructor1(_fmxcpt& x);
FMX_API void FM_DateTime_Delete(DateTime* self, _fmxcpt& x);
FMX_API void FM_DateTime_Now(DateTime* self, _fmxcpt& x);
FMX_API errcode FM_DateTime_SetNormalizedDate1(DateTime* self, int16 month, int16 day, int16 year, _fmxcpt& x);
FMX_API errcode FM_DateTime_SetNormalizedTime1(DateTime* self, int64 hour, int16 minute, int16 second,
                                               int32 microseconds, _fmxcpt& x);
FMX_API int16 FM_DateTime_GetYear(const DateTime* self, _fmxcpt& x);
FMX_API int16 FM_DateTime_GetMonth(const DateTime* self, _fmxcpt& x);
FMX_API int16 FM_DateTime_GetDay(const DateTime* self, _fmxcpt& x);
FMX_API int32 FM_DateTime_GetHour(const DateTime* self, _fmxcpt& x);
FMX_API int16 FM_DateTime_GetMinute(const DateTime* self, _fmxcpt& x);
FMX_API int16 FM_DateTime_GetSec(const DateTime* self, _fmxcpt& x);
FMX_API int32 FM_DateTime_GetUSec(const DateTime* self, _fmxcpt& x);
FMX_API int32 FM_DateTime_GetDaysSinceEpoch(const DateTime* self, _fmxcpt& x);
FMX_API bool FM_DateTime_operatorEQ(const DateTime* self, const DateTime& that, _fmxcpt& x);
FMX_API bool FM_DateTime_operatorNE(const DateTime* self, const DateTime& that, _fmxcpt& x);
}

// A day of the proleptic Gregorian calendar, 1/1/0001 to 12/31/4000, and a time of that day in microseconds; no time
// zone. Made as 1/1/0001 0:00:00.
class DateTime {
public:
    void Now() { _fmxcall(FM_DateTime_Now, this); } // the local date and time

    // Month and day may lie outside their usual range and roll over: month 13 is January of the next year, day 0 the
    // last day of the month before. The time of day stays. A date outside the calendar's range returns 500 and changes
    // nothing.
    errcode SetNormalizedDate(int16 month, int16 day, int16 year)
    {
        return _fmxcall(FM_DateTime_SetNormalizedDate1, this, month, day, year);
    }
    // All parts may lie outside their usual range, negative ones included, and roll over, hours into the day: so the
    // date is set first. A day outside the calendar's range returns 501 and changes nothing.
    errcode SetNormalizedTime(int64 hour, int16 minute, int16 second, int32 microseconds = 0)
    {
        return _fmxcall(FM_DateTime_SetNormalizedTime1, this, hour, minute, second, microseconds);
    }

    int16 GetYear() const { return _fmxcall(FM_DateTime_GetYear, this); }
    int16 GetMonth() const { return _fmxcall(FM_DateTime_GetMonth, this); } // 1 to 12
    int16 GetDay() const { return _fmxcall(FM_DateTime_GetDay, this); }     // 1 to 31
    // 0 to 23, except in a time that a Data holds as a duration: -25:30 has hour -25 and minute -30.
    int32 GetHour() const { return _fmxcall(FM_DateTime_GetHour, this); }
    int16 GetMinute() const { return _fmxcall(FM_DateTime_GetMinute, this); }
    int16 GetSec() const { return _fmxcall(FM_DateTime_GetSec, this); }
    int32 GetUSec() const { return _fmxcall(FM_DateTime_GetUSec, this); } // 0 to 999999
    // FileMaker's number of the day: 1/1/0001 is 1.
    int32 GetDaysSinceEpoch() const { return _fmxcall(FM_DateTime_GetDaysSinceEpoch, this); }

    bool operator==(const DateTime& that) const { return _fmxcall(FM_DateTime_operatorEQ, this, that); }
    bool operator!=(const DateTime& that) const { return _fmxcall(FM_DateTime_operatorNE, this, that); }

    void operator delete(void* self)
    {
        _fmxcpt x;
        FM_DateTime_Delete(static_cast<DateTime*>(self), x);
    }

private:
    DateTime();
    DateTime(const DateTime&);
    DateTime& operator=(const DateTime&);
};

class DateTimeUniquePtr : public std::unique_ptr<DateTime> {
public:
    DateTimeUniquePtr() : std::unique_ptr<DateTime>(_fmxcall(FM_DateTime_Constructor1)) {}
};

} // namespace fmx
