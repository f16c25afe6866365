#include <fmxkit/failure.h>

#include "entry.h"

namespace fmxkit {
namespace {

struct Injection {
    std::uint32_t failingCall = 0; // 0: none
    std::uint32_t calls = 0;
    Failure failure = Failure::allocation;
};

thread_local Injection injection;

} // namespace

fmx::int32 injectedFailure() noexcept
{
    ++injection.calls;
    if (injection.failingCall == 0 || injection.calls != injection.failingCall) {
        return 0;
    }
    return static_cast<fmx::int32>(injection.failure);
}

void failNthCall(std::uint32_t n, Failure failure)
{
    injection = {n, 0, failure};
}

std::uint32_t callsSinceArmed()
{
    return injection.calls;
}

} // namespace fmxkit
