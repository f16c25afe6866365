// FileMaker's error codes that this library returns (FileMaker Pro help, "FileMaker error codes").
#pragma once

#include <FMXTypes.h>

namespace fmxkit {

inline constexpr fmx::errcode noError = 0;
inline constexpr fmx::errcode invalidDate = 500;
inline constexpr fmx::errcode invalidTime = 501;
inline constexpr fmx::errcode genericCalculationError = 1200;
inline constexpr fmx::errcode alreadyRegistered = 1210;
inline constexpr fmx::errcode numberCannotBeEvaluated = 1218;
inline constexpr fmx::errcode doesNotExist = 1224;

} // namespace fmxkit
