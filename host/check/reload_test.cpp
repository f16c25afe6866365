// reload: what is left of a plug-in that was loaded, started, shut down and unloaded again and again.
#include "host/check/processes.h"
#include "host/check/system.h"
#include "host/check/tests.h"

#include <algorithm>
#include <array>
#include <functional>
#include <optional>
#include <string>

namespace fmxhost::check {
namespace {

// The first rounds fill caches. After that, something is leaked when there is more of it after each period: a leak in
// every round shows in every period, a table that grows now and then doesn't.
constexpr int warmUpRounds = 20;
constexpr int periods = 5;
constexpr int roundsPerPeriod = 20;
constexpr int rounds = periods * roundsPerPeriod;
static_assert(rounds == 100);

// No allocator hands out less than this.
constexpr std::size_t smallestAllocation = 16;
constexpr std::size_t smallestLeak = roundsPerPeriod * smallestAllocation;

struct Holdings : Resources {
    std::optional<std::size_t> processes;
};
using Measurements = std::array<Holdings, periods + 1>;

Holdings holdings()
{
    return {resourcesInUse(), childProcesses()};
}

void loadAndUnload(const Examination& examination, int count)
{
    for (int round = 0; round < count; ++round) {
        examination.step("loading and starting it again");
        Plugin plugin(examination.file(), examination.apiVersion());
        plugin.start();
        examination.reach(Stage::started);
        examination.step("shutting it down");
        plugin.shutDown();
        examination.reach(Stage::ended);
        examination.step("unloading it");
        plugin.unload();
    }
    examination.step("");
}

// How much more there is at the end, when there was at least `least` more after each period.
template <class Quantity>
std::optional<std::size_t> steadyGrowth(const Measurements& measurements, Quantity quantity, std::size_t least = 1)
{
    const auto valueOf = [&quantity](const Holdings& held) {
        return std::optional<std::size_t>(std::invoke(quantity, held));
    };
    if (!valueOf(measurements.front())) {
        return std::nullopt;
    }
    const auto staysBelow = [&](const Holdings& before, const Holdings& after) {
        return *valueOf(after) < *valueOf(before) + least;
    };
    if (std::adjacent_find(measurements.begin(), measurements.end(), staysBelow) != measurements.end()) {
        return std::nullopt;
    }
    return *valueOf(measurements.back()) - *valueOf(measurements.front());
}

std::string inRounds(std::size_t growth, std::string_view unit)
{
    return std::to_string(growth) + " " + std::string(unit) + " more after " + std::to_string(rounds) + " rounds";
}

} // namespace

void examineReloading(Examination& examination)
{
    adoptOrphans();
    loadAndUnload(examination, warmUpRounds);
    Measurements measurements;
    measurements.front() = holdings();
    for (int period = 1; period <= periods; ++period) {
        loadAndUnload(examination, roundsPerPeriod);
        measurements.at(static_cast<std::size_t>(period)) = holdings();
    }

    if (const auto growth = steadyGrowth(measurements, &Resources::descriptors)) {
        examination.fail("file descriptors stay open: " + inRounds(*growth, "descriptors"));
    }
    if (const auto growth = steadyGrowth(measurements, &Resources::threads)) {
        examination.fail("threads go on: " + inRounds(*growth, "threads"));
    }
    if (const auto growth = steadyGrowth(measurements, &Holdings::processes)) {
        examination.fail("processes are left, running or not waited for: " + inRounds(*growth, "processes"));
    }
    if (const auto growth = steadyGrowth(measurements, &Resources::heap, smallestLeak)) {
        examination.fail("memory isn't freed: " + inRounds(*growth, "bytes"));
    }
    if (const auto growth = steadyGrowth(measurements, &Resources::mapped)) {
        examination.fail("mapped memory isn't unmapped: " + inRounds(*growth, "bytes"));
    }
    if (!measurements.front().heap) {
        examination.note("memory isn't measured on this system, file descriptors are");
    }
}

} // namespace fmxhost::check
