// Makes every call that the plug-in makes fail once, function by function, and looks at what comes of it.
//
//   fault_driver [WORDS]     only the scenarios whose names contain WORDS
//
// All faults with FOLIDEX_FULL in the environment, otherwise a sample. Exit status: 0 when all held, 1 when one didn't,
// 2 when it can't work.

#include "faults/injector_access.h"
#include "faults/scratch_pair.h"
#include "faults/trial.h"
#include "support/child_process.h"
#include "support/plugin_under_test.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <sstream>
#include <string>

using namespace folidex::test;

namespace {

constexpr unsigned leastInjections = 2000; // of an exhaustive run

std::string encode(const Tally& tally)
{
    std::ostringstream text;
    text << tally.injections << " " << tally.held << " " << tally.missed;
    for (const unsigned number : tally.byCall) {
        text << " " << number;
    }
    text << "\n" << tally.faults;
    return text.str();
}

bool decode(const std::string& text, Tally& tally)
{
    std::istringstream stream(text);
    stream >> tally.injections >> tally.held >> tally.missed;
    for (unsigned& number : tally.byCall) {
        stream >> number;
    }
    const bool isTally = !stream.fail();
    const std::size_t line = text.find('\n');
    tally.faults = isTally && line != std::string::npos ? text.substr(line + 1) : text;
    return isTally;
}

std::string tryInChild(const Scenario& scenario, const PluginUnderTest& plugin, const ScratchFolder& home,
                       const ScratchFolder* away, Extent extent)
{
    return inChild([&] {
        Places places{home.text("tree"), away != nullptr ? away->text("tree") : std::string(), {}};
        if (scenario.ownRoot) {
            enterRoot(home.text());
            places = {"/tree", "", "/Volumes"};
        }
        return encode(tryScenario(scenario, plugin, places, extent));
    });
}

// How many there were of each kind of call.
void printCalls(const Tally& tally)
{
    constexpr std::size_t width = 100;
    std::string line;
    for (std::size_t call = 0; call < callCount; ++call) {
        if (tally.byCall[call] == 0) {
            continue;
        }
        const std::string entry =
            std::string(nameOf(static_cast<Call>(call))) + ": " + std::to_string(tally.byCall[call]);
        if (line.size() + entry.size() > width) {
            std::printf("  %s\n", line.c_str());
            line.clear();
        }
        line.append(line.empty() ? "" : "; ").append(entry);
    }
    std::printf("  %s\n", line.c_str());
}

// Answers how many kinds of calls no scenario makes, which would leave them untried for ever.
unsigned reportUntouched(const Tally& tally)
{
    unsigned untouched = 0;
    for (std::size_t call = 0; call < callCount; ++call) {
        if (tally.byCall[call] == 0) {
            std::printf("No scenario calls %s.\n", nameOf(static_cast<Call>(call)));
            ++untouched;
        }
    }
    return untouched;
}

bool matches(const Scenario& scenario, const char* words)
{
    return words == nullptr || scenario.name.find(words) != std::string::npos;
}

int runAll(const char* words)
{
    const Extent extent = getenv("FOLIDEX_FULL") != nullptr ? Extent::exhaustive : Extent::sampled;
    const PluginUnderTest plugin;
    const ScratchPair scratch;
    Tally total;
    unsigned broken = 0;
    bool complete = words == nullptr && extent == Extent::exhaustive;
    for (const Scenario& scenario : scenarios()) {
        if (!matches(scenario, words)) {
            continue;
        }
        const bool rootOnly = scenario.ownRoot || scenario.needsRoot;
        if ((scenario.needsAway && !scratch.away) || (rootOnly && !isRoot())) {
            std::printf("%-56s skipped: needs %s\n", scenario.name.c_str(),
                        rootOnly ? "root's rights" : "a second file system at /dev/shm");
            complete = false;
            continue;
        }
        Tally tally;
        if (!decode(tryInChild(scenario, plugin, *scratch.home, scratch.away.get(), extent), tally)) {
            ++broken;
        }
        std::printf("%-56s %5u injections, %5u held\n%s", scenario.name.c_str(), tally.injections, tally.held,
                    tally.faults.c_str());
        std::fflush(stdout);
        total.injections += tally.injections;
        total.held += tally.held;
        total.missed += tally.missed;
        for (std::size_t call = 0; call < callCount; ++call) {
            total.byCall[call] += tally.byCall[call];
        }
    }
    std::printf("Calls that were made to fail:\n");
    printCalls(total);
    std::printf("%u injections, %u held (%s", total.injections, total.held,
                extent == Extent::exhaustive ? "exhaustive" : "a sample; all with FOLIDEX_FULL=1");
    std::printf("; %u more had nothing to strike)\n", total.missed);
    if (complete) {
        broken += reportUntouched(total);
    }
    const bool enough = words != nullptr || extent == Extent::sampled || total.injections >= leastInjections;
    return broken == 0 && total.injections > 0 && total.held == total.injections && enough ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        loadInjector(argv);
        setenv("TZ", "UTC", 1);
        return runAll(argc > 1 ? argv[1] : nullptr);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "fault_driver: %s\n", error.what());
        return 2;
    }
}
