// One process that calls for a long time.

#include "stress/mixed_calls.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace folidex::test {
namespace {

constexpr unsigned warmUpCalls = 10'000;
constexpr std::size_t mostGrowth = std::size_t{1} << 20; // bytes

// What Valgrind runs too.
TEST(OnePass, AllFunctions)
{
    const ScratchFolder scratch;
    prepareProcess(scratch);
    const PluginUnderTest plugin;
    MixedCalls mix(plugin, scratch, 0);
    mix.round();
    mix.archiveRound();
    EXPECT_EQ(mix.faults(), "");
}

TEST(Soak, NeitherMemoryNorDescriptorsGrow)
{
    const ScratchFolder scratch;
    prepareProcess(scratch);
    const PluginUnderTest plugin;
    MixedCalls mix(plugin, scratch, 0);
    const unsigned wanted = isFullRun() ? 1'000'000 : 60'000;
    unsigned calls = mix.archiveRound();
    while (calls < warmUpCalls) {
        calls += mix.round();
    }
    const std::size_t resident = residentBytes();
    const std::size_t descriptors = openDescriptors();
    while (calls < wanted) {
        calls += mix.round();
    }
    EXPECT_EQ(mix.faults(), "");
    EXPECT_EQ(openDescriptors(), descriptors);
#ifndef FOLIDEX_SANITIZED // a sanitizer keeps freed memory
    EXPECT_LT(residentBytes(), resident + mostGrowth);
#endif
    std::printf("%u calls; resident after %u: %zu KiB, at the end: %zu KiB; descriptors: %zu and %zu\n", calls,
                warmUpCalls, resident / 1024, residentBytes() / 1024, descriptors, openDescriptors());
}

} // namespace
} // namespace folidex::test
