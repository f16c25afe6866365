// What the surroundings of the tests allow, as tests/support/surroundings.py decides it.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace folidex::test {

// Why a test can't run here, a line for each need that isn't met; empty when all are. `needs`: words for that program,
// as "mounts access-lists".
std::string lacking(const std::string& needs);

} // namespace folidex::test

// The rest of the test is skipped where something is lacking for it.
#define SKIP_WITHOUT(needs)                                                                                            \
    if (const std::string lack = folidex::test::lacking(needs); !lack.empty()) {                                       \
        GTEST_SKIP() << lack;                                                                                          \
    }                                                                                                                  \
    static_assert(true)
