// Makes every call that the plug-in makes fail once, function by function, and looks at what comes of it.
//
//   fault_driver [WORDS]     only the scenarios whose names contain WORDS
//
// All faults with FOLIDEX_FULL in the environment, otherwise a sample. Exit status: 0 when all held, 1 when one didn't,
// 2 when it can't work.

#include "faults/trial.h"
#include "support/child_process.h"
#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

using namespace folidex::test;

namespace {

constexpr unsigned leastInjections = 2000; // of an exhaustive run

// Starts this program anew behind the library; returns when that is so already.
void loadInjector(char** arguments)
{
    if (dlsym(RTLD_DEFAULT, armName) != nullptr) {
        unsetenv("LD_PRELOAD"); // not for the scripts that the plug-in runs
        return;
    }
    if (getenv("LD_PRELOAD") == nullptr) {
        setenv("LD_PRELOAD", FOLIDEX_FAULT_INJECTOR, 1);
        execv("/proc/self/exe", arguments);
    }
    throw std::runtime_error("the fault injector can't be loaded");
}

dev_t deviceOf(const std::filesystem::path& path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_dev : 0;
}

std::unique_ptr<ScratchFolder> scratchIn(const char* place)
{
    const char* usual = getenv("TMPDIR");
    const std::optional<std::string> kept = usual != nullptr ? std::optional<std::string>(usual) : std::nullopt;
    setenv("TMPDIR", place, 1);
    auto folder = std::make_unique<ScratchFolder>();
    kept ? setenv("TMPDIR", kept->c_str(), 1) : unsetenv("TMPDIR");
    return folder;
}

// Scratch folders on two file systems; the second is null where there is only one. The trees are built where it is
// quickest, in memory, unless no attribute can be kept there (tmpfs before Linux 6.6).
struct Scratch {
    std::unique_ptr<ScratchFolder> home = std::make_unique<ScratchFolder>();
    std::unique_ptr<ScratchFolder> away;

    Scratch()
    {
        const char* memory = "/dev/shm";
        if (deviceOf(memory) == 0 || deviceOf(memory) == deviceOf(home->path()) || access(memory, W_OK) != 0) {
            return;
        }
        away = scratchIn(memory);
        if (setxattr(away->path().c_str(), "user.note", "", 0, 0) == 0) {
            std::swap(home, away);
        }
    }
};

std::string encode(const Tally& tally)
{
    std::ostringstream text;
    text << tally.injections << " " << tally.held << " " << tally.missed << "\n" << tally.faults;
    return text.str();
}

bool decode(const std::string& text, Tally& tally)
{
    std::istringstream stream(text);
    stream >> tally.injections >> tally.held >> tally.missed;
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

bool matches(const Scenario& scenario, const char* words)
{
    return words == nullptr || scenario.name.find(words) != std::string::npos;
}

int runAll(const char* words)
{
    const Extent extent = getenv("FOLIDEX_FULL") != nullptr ? Extent::exhaustive : Extent::sampled;
    const PluginUnderTest plugin;
    const Scratch scratch;
    Tally total;
    unsigned broken = 0;
    for (const Scenario& scenario : scenarios()) {
        if (!matches(scenario, words)) {
            continue;
        }
        if ((scenario.needsAway && !scratch.away) || (scenario.ownRoot && !isRoot())) {
            std::printf("%-56s skipped: needs %s\n", scenario.name.c_str(),
                        scenario.ownRoot ? "root's rights" : "a second file system at /dev/shm");
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
    }
    std::printf("%u injections, %u held (%s", total.injections, total.held,
                extent == Extent::exhaustive ? "exhaustive" : "a sample; all with FOLIDEX_FULL=1");
    std::printf("; %u more had nothing to strike)\n", total.missed);
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
