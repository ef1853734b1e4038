#include "BenchSupport.h"

#include <benchmark/benchmark.h>

// Registration happens at run time because which meshes exist depends on what
// scripts/bench fetched.
int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    zgu_bench::RegisterBenchmarks();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
