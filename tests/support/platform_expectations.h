// Where the macOS platform files, or GNUstep in the place of Apple's frameworks, are known to behave otherwise than
// platform/linux does. Every such place in a test is marked by this, with its reason.
#pragma once

namespace folidex::test {

#if defined(__APPLE__) || defined(FOLIDEX_COCOA)
inline constexpr bool onCocoa = true; // macOS, or GNUstep on Linux
#else
inline constexpr bool onCocoa = false;
#endif

} // namespace folidex::test
