// Work on all processors that the process may use.
#pragma once

#include <cstddef>
#include <functional>

namespace archiver {

// At least 1: what sched_getaffinity(2) and the control group's quota (cpu.max, cpu.cfs_quota_us) leave; on macOS
// hw.activecpu (sysctl(3)).
unsigned usableProcessors();

// Runs job(0) … job(count - 1), each once, in order of their numbers as far as the start goes, on as many threads as
// there are processors; with one, on the calling thread. The first exception keeps what hasn't begun from running and
// is thrown here once all threads have ended.
void forEachInParallel(std::size_t count, const std::function<void(std::size_t)>& job);

} // namespace archiver
