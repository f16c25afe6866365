// Where the macOS platform files, or GNUstep in the place of Apple's frameworks, are known to answer otherwise than
// platform/linux does. Every such place in a test is marked by one of these, with its reason.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

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

// Failures are told in the system's own words: what platform/linux says begins with "could not ". The frameworks have
// other words for that part, but they do have some.
inline bool saysTheSame(std::string_view found, std::string_view expected)
{
    const std::size_t start = expected.find("could not ");
    if (!onCocoa || start == std::string_view::npos) {
        return found == expected;
    }
    return found.size() > start && found.substr(0, start) == expected.substr(0, start);
}

} // namespace folidex::test

// What follows in the test isn't to be had there. `reason`: a sentence.
#define SKIP_ON_COCOA(reason)                                                                                          \
    if (folidex::test::onCocoa) {                                                                                      \
        GTEST_SKIP() << "platform/macos: " << (reason);                                                                \
    }                                                                                                                  \
    static_assert(true)
#define SKIP_ON_GNUSTEP(reason)                                                                                        \
    if (folidex::test::onGNUstep) {                                                                                    \
        GTEST_SKIP() << "GNUstep: " << (reason);                                                                       \
    }                                                                                                                  \
    static_assert(true)
