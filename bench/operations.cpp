#include "bench/floor.h"
#include "bench/handler.h"
#include "bench/workload.h"

#include <benchmark/benchmark.h>

#include <filesystem>

namespace {

using benchmark::State;
using folidex::bench::Handler;
namespace floor = folidex::bench::floor;
using folidex::bench::largeFile;
using folidex::bench::scratch;
using folidex::bench::smallFiles;

// An empty folder for copies to appear in, new for every round.
std::string emptyTarget()
{
    std::string target = scratch("target");
    std::filesystem::remove_all(target);
    std::filesystem::create_directory(target);
    return target;
}

// Measures `work` alone; `prepare` runs before every round outside of the time.
template <typename Prepare, typename Work>
void run(State& state, const Prepare& prepare, const Work& work)
{
    while (state.KeepRunning()) {
        state.PauseTiming();
        prepare();
        state.ResumeTiming();
        if (!work()) {
            return state.SkipWithError("the function returned an error");
        }
    }
    emptyTarget();
}

void folderCopy(State& state)
{
    Handler handler("KORB_FolderCopy", {smallFiles(), emptyTarget()});
    run(state, emptyTarget, [&handler] { return handler.call(); });
}
void folderCopyFloor(State& state)
{
    const std::string target = emptyTarget() + "/small";
    run(state, emptyTarget, [source = smallFiles(), &target] {
        floor::copyTree(source, target);
        return true;
    });
}

// A copy of the small files, to be removed.
std::string doomed()
{
    std::string target = emptyTarget() + "/small";
    floor::copyTree(smallFiles(), target);
    return target;
}

void folderDelete(State& state)
{
    Handler handler("KORB_FolderDelete", {doomed()});
    run(state, doomed, [&handler] { return handler.call(); });
}
void folderDeleteFloor(State& state)
{
    run(state, doomed, [target = doomed()] {
        floor::removeTree(target);
        return true;
    });
}

void fileCopy(State& state)
{
    Handler handler("KORB_FileCopy", {largeFile(), emptyTarget()});
    run(state, emptyTarget, [&handler] { return handler.call(); });
}
void fileCopyFloor(State& state)
{
    const std::string target = emptyTarget() + "/large";
    run(state, emptyTarget, [source = largeFile(), &target] {
        floor::copyFile(source, target);
        return true;
    });
}

BENCHMARK(folderCopy)->Name("KORB_FolderCopy/function")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(folderCopyFloor)->Name("KORB_FolderCopy/floor")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(folderDelete)->Name("KORB_FolderDelete/function")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(folderDeleteFloor)->Name("KORB_FolderDelete/floor")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(fileCopy)->Name("KORB_FileCopy/function")->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(fileCopyFloor)->Name("KORB_FileCopy/floor")->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

} // namespace
