#include "platform/calendar.h"

#include <ctime>

namespace platform {

LocalDateTime localDateTime(UnixTime time)
{
    const std::time_t seconds = time;
    std::tm parts{};
    if (localtime_r(&seconds, &parts) == nullptr) {
        return {}; // EOVERFLOW: a year that doesn't fit tm_year
    }
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec};
}

} // namespace platform
