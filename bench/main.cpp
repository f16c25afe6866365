// Measures the plug-in's functions, called through the kit, each beside the floor of its work (floor.h).
//
// folidex_bench [Google Benchmark's options]
// folidex_bench make KIND PATH       makes a workload (workload.h) for measurements from outside

#include "bench/handler.h"
#include "bench/workload.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>
#include <string_view>

int main(int argc, char** argv)
{
    try {
        if (argc == 4 && argv[1] == std::string_view("make")) {
            folidex::bench::makeWorkload(argv[2], argv[3]);
            return 0;
        }
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
            return 2;
        }
        benchmark::AddCustomContext("plugin", folidex::bench::plugin().file());
        benchmark::RunSpecifiedBenchmarks();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "folidex_bench: %s\n", error.what());
        return 1;
    }
}
