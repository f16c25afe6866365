#include "host/check/system.h"

#include <libproc.h>
#include <malloc/malloc.h>
#include <unistd.h>

#include <vector>

#if __has_feature(address_sanitizer)
#include <sanitizer/allocator_interface.h>
#endif

namespace fmxhost::check {
namespace {

std::size_t openDescriptors()
{
    const int roomy = ::proc_pidinfo(::getpid(), PROC_PIDLISTFDS, 0, nullptr, 0); // with free places
    std::vector<proc_fdinfo> entries(static_cast<std::size_t>(roomy > 0 ? roomy : 0) / sizeof(proc_fdinfo));
    const int used = ::proc_pidinfo(::getpid(), PROC_PIDLISTFDS, 0, entries.data(),
                                    static_cast<int>(entries.size() * sizeof(proc_fdinfo)));
    return static_cast<std::size_t>(used > 0 ? used : 0) / sizeof(proc_fdinfo);
}

std::optional<std::size_t> runningThreads()
{
    proc_taskinfo task{};
    constexpr int size = sizeof task;
    if (::proc_pidinfo(::getpid(), PROC_PIDTASKINFO, 0, &task, size) != size) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(task.pti_threadnum);
}

std::size_t allocatedBytes()
{
#if __has_feature(address_sanitizer)
    return __sanitizer_get_current_allocated_bytes(); // its allocator takes the system's place
#else
    malloc_statistics_t sum{};
    ::malloc_zone_statistics(nullptr, &sum); // of all zones
    return sum.size_in_use;
#endif
}

} // namespace

// Mappings aren't measured: the dynamic loader's own can't be told from a plug-in's.
Resources resourcesInUse()
{
    return {openDescriptors(), runningThreads(), allocatedBytes(), std::nullopt};
}

void measureHeapsExactly() {}

// There is nothing of the kind without a thread that watches: a test that is under way comes to its end.
void endWithParent() {}

} // namespace fmxhost::check
