#include "bench/floor.h"
#include "bench/handler.h"
#include "bench/workload.h"

#include <benchmark/benchmark.h>

namespace {

using benchmark::State;
using folidex::bench::Handler;
namespace floor = folidex::bench::floor;
using folidex::bench::flatFolder;
using folidex::bench::wideTree;

// Calls the function for as long as the measurement takes.
void run(State& state, const char* function, const std::vector<std::string>& arguments)
{
    Handler handler(function, arguments);
    while (state.KeepRunning()) {
        if (!handler.call()) {
            return state.SkipWithError("the function returned an error");
        }
    }
}

template <typename Work>
void runFloor(State& state, const Work& work)
{
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(work());
    }
}

void getNumFiles(State& state)
{
    run(state, "KORB_GetNumFiles", {flatFolder()});
}
void getFiles(State& state)
{
    run(state, "KORB_GetFiles", {flatFolder()});
}
void listFloor(State& state)
{
    runFloor(state, [folder = flatFolder()] { return floor::countFiles(folder); });
}

void getFolderSize(State& state)
{
    run(state, "KORB_GetFolderSize", {wideTree()});
}
void sizeFloor(State& state)
{
    runFloor(state, [folder = wideTree()] { return floor::sumSizes(folder); });
}

void getFileExists(State& state)
{
    run(state, "KORB_GetFileExists", {FOLIDEX_PLUGIN_FILE});
}
void existsFloor(State& state)
{
    runFloor(state, [] { return floor::statTwice(FOLIDEX_PLUGIN_FILE, "/Volumes/" FOLIDEX_PLUGIN_FILE); });
}

void getDrives(State& state)
{
    run(state, "KORB_GetDrives", {});
}

// bench/compare sets NAME/function against NAME/floor.
BENCHMARK(getNumFiles)->Name("KORB_GetNumFiles/function")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(listFloor)->Name("KORB_GetNumFiles/floor")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(getFiles)->Name("KORB_GetFiles/function")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(listFloor)->Name("KORB_GetFiles/floor")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(getFolderSize)->Name("KORB_GetFolderSize/function")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(sizeFloor)->Name("KORB_GetFolderSize/floor")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(getFileExists)->Name("KORB_GetFileExists/function")->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(existsFloor)->Name("KORB_GetFileExists/floor")->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(getDrives)->Name("KORB_GetDrives/function")->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace
