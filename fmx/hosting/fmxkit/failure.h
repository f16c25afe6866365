// Failure injection for tests: makes one call of the kit report an allocation failure or another failure.
//
// Thread rule: the counters belong to the calling thread, so that a test disturbs no other thread's calls.
#pragma once

#include <cstdint>

namespace fmxkit {

enum class Failure : std::int32_t { allocation = 1, other = 2 };

// The n-th C entry point (1 is the next one) that this thread calls from now on, and that can fail, reports `failure`
// through its error slot and does nothing else. `n` = 0 switches injection off. Every entry point can fail, except
// those that delete a value: they always do, and aren't counted.
[[gnu::visibility("default")]] void failNthCall(std::uint32_t n, Failure failure = Failure::allocation);

// How many entry points that can fail this thread has called since the last failNthCall.
[[gnu::visibility("default")]] std::uint32_t callsSinceArmed();

} // namespace fmxkit
