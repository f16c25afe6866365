// Local time.
//
// Thread rule: nobody may change the process's time zone meanwhile.
#pragma once

#include "platform/file_manager.h"

namespace platform {

// Gregorian calendar, local time zone.
struct LocalDateTime {
    int year = 0;  // 0: the time is beyond what the calendar can say
    int month = 1; // 1 to 12
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

LocalDateTime localDateTime(UnixTime time);

} // namespace platform
