#include "platform/posix/copy_record.h"

#include "platform/posix/file_times.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <functional>

namespace platform::posix {

namespace {

std::uint64_t hash(std::string_view bytes)
{
    static_assert(sizeof(std::size_t) == sizeof(std::uint64_t));
    return std::hash<std::string_view>()(bytes);
}

std::uint64_t fingerprint(Place place, const struct stat& status, bool isWhole)
{
    std::array<std::uint64_t, 7> facts{place, std::uint64_t{status.st_mode} & S_IFMT};
    if (isWhole || !S_ISDIR(status.st_mode)) {
        facts[2] = static_cast<std::uint64_t>(status.st_size);
        facts[3] = static_cast<std::uint64_t>(modificationTime(status).tv_sec);
        facts[4] = static_cast<std::uint64_t>(modificationTime(status).tv_nsec);
    }
    if (isWhole) {
        facts[5] = static_cast<std::uint64_t>(changeTime(status).tv_sec);
        facts[6] = static_cast<std::uint64_t>(changeTime(status).tv_nsec) + 1; // never as without
    }
    return hash({reinterpret_cast<const char*>(facts.data()), sizeof facts});
}

} // namespace

Place placeOf(Place folder, std::string_view name)
{
    const std::array<std::uint64_t, 2> steps{folder, hash(name)};
    return hash({reinterpret_cast<const char*>(steps.data()), sizeof steps});
}

void CopyRecord::add(Place place, const struct stat& status)
{
    prints_.push_back(fingerprint(place, status, true));
    prints_.push_back(fingerprint(place, status, false));
}

void CopyRecord::close()
{
    std::sort(prints_.begin(), prints_.end());
}

bool CopyRecord::holds(Place place, const struct stat& status) const
{
    return std::binary_search(prints_.begin(), prints_.end(), fingerprint(place, status, true));
}

bool CopyRecord::holdsContent(Place place, const struct stat& status) const
{
    return std::binary_search(prints_.begin(), prints_.end(), fingerprint(place, status, false));
}

bool hasSameContent(const struct stat& now, const struct stat& before)
{
    return now.st_dev == before.st_dev && now.st_size == before.st_size &&
           areEqual(modificationTime(now), modificationTime(before));
}

std::int64_t timeUntilNextStamp(const struct stat& status)
{
#ifdef __linux__
    constexpr clockid_t clock = CLOCK_REALTIME_COARSE; // which stamps files
#else
    constexpr clockid_t clock = CLOCK_REALTIME;
#endif
    constexpr std::int64_t second = 1'000'000'000;
    constexpr std::int64_t tick = 10'000'000; // the longest, of a kernel with 100 a second
    const timespec& last = changeTime(status);
    const std::int64_t precision = last.tv_nsec == 0 ? 2 * second : last.tv_nsec % tick == 0 ? tick : 1;
    timespec now{};
    clock_gettime(clock, &now);
    const std::int64_t age = (now.tv_sec - last.tv_sec) * second + now.tv_nsec - last.tv_nsec;
    // A time in the future is another clock's.
    return age >= precision || age < -precision - tick ? 0 : precision - age + tick;
}

} // namespace platform::posix
