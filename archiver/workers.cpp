// The threads that forEachInParallel() starts take the next number until there is none left, or one of them has failed.
#include "archiver/workers.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#ifdef __linux__
#include <sched.h>
#else
#include <sys/sysctl.h>
#endif

namespace archiver {

namespace {

#ifdef __linux__
unsigned allowedProcessors()
{
    // The kernel refuses a set that is smaller than its own, which is for 8,192 processors at most.
    std::array<cpu_set_t, 8192 / CPU_SETSIZE> set{};
    return sched_getaffinity(0, sizeof set, set.data()) == 0
               ? static_cast<unsigned>(CPU_COUNT_S(sizeof set, set.data()))
               : std::thread::hardware_concurrency();
}

// Processors that a control group's quota amounts to, rounded up; 0 when it has none.
unsigned quotaOf(const std::string& group)
{
    long long quota = -1;
    long long period = 0;
    std::ifstream unified(group + "/cpu.max"); // "max 100000" without a quota
    if (!(unified >> quota >> period)) {
        std::ifstream(group + "/cpu.cfs_quota_us") >> quota;
        std::ifstream(group + "/cpu.cfs_period_us") >> period;
    }
    return quota > 0 && period > 0 ? static_cast<unsigned>((quota + period - 1) / period) : 0;
}

// The smallest of the process's control group and those above it (cgroups(7)); 0 without any.
unsigned processorQuota()
{
    unsigned smallest = 0;
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        const std::size_t first = line.find(':');
        const std::size_t second = line.find(':', first + 1);
        if (second == std::string::npos) {
            continue;
        }
        const std::string controllers = line.substr(first + 1, second - first - 1);
        if (!controllers.empty() && ("," + controllers + ",").find(",cpu,") == std::string::npos) {
            continue;
        }
        const std::string mount = controllers.empty() ? "/sys/fs/cgroup" : "/sys/fs/cgroup/cpu";
        for (std::string group = line.substr(second + 1);; group.resize(group.rfind('/'))) {
            const unsigned quota = quotaOf(mount + group);
            smallest = quota != 0 && (smallest == 0 || quota < smallest) ? quota : smallest;
            if (group.rfind('/') == std::string::npos) {
                break;
            }
        }
    }
    return smallest;
}
#else
unsigned allowedProcessors()
{
    int count = 0;
    std::size_t size = sizeof count;
    return sysctlbyname("hw.activecpu", &count, &size, nullptr, 0) == 0 ? static_cast<unsigned>(count) : 1;
}

unsigned processorQuota()
{
    return 0;
}
#endif

} // namespace

unsigned usableProcessors()
{
    static const unsigned count = [] {
        const unsigned allowed = std::max(1U, allowedProcessors());
        const unsigned quota = processorQuota();
        return quota == 0 ? allowed : std::min(allowed, quota);
    }();
    return count;
}

void forEachInParallel(std::size_t count, const std::function<void(std::size_t)>& job)
{
    std::atomic<std::size_t> next{0};
    std::mutex mutex;
    std::exception_ptr failure;
    const auto work = [&] {
        try {
            for (std::size_t number; (number = next.fetch_add(1)) < count;) {
                job(number);
            }
        } catch (...) {
            next = count;
            const std::lock_guard lock(mutex);
            failure = failure ? failure : std::current_exception();
        }
    };
    std::vector<std::thread> others;
    try {
        for (std::size_t i = 1; i < std::min<std::size_t>(usableProcessors(), count); ++i) {
            others.emplace_back(work);
        }
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): those that could be started do all the work
    }
    work();
    for (std::thread& other : others) {
        other.join();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

} // namespace archiver
