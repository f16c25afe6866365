// Where the macOS platform files, or GNUstep in the place of Apple's frameworks, are known to behave otherwise than
// platform/linux does. Every such place in a test is marked by one of these, with its reason.
#pragma once

#include <gtest/gtest.h>

namespace folidex::test {

#if defined(__APPLE__) || defined(FOLIDEX_COCOA)
inline constexpr bool onCocoa = true; // macOS, or GNUstep on Linux
#else
inline constexpr bool onCocoa = false;
#endif
#ifdef FOLIDEX_COCOA
inline constexpr bool onGNUstep = true;
#else
inline constexpr bool onGNUstep = false;
#endif

} // namespace folidex::test

// What follows in the test isn't to be had there. `reason`: a sentence.
#define SKIP_ON_GNUSTEP(reason)                                                                                        \
    if (folidex::test::onGNUstep) {                                                                                    \
        GTEST_SKIP() << "GNUstep: " << (reason);                                                                       \
    }                                                                                                                  \
    static_assert(true)
