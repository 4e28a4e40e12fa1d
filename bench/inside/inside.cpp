// The time of every case.
#include "cases.h"

#include <benchmark/benchmark.h>

int main(int argc, char** argv) {
    for (const qaven::bench::Case& measured : qaven::bench::cases()) {
        benchmark::RegisterBenchmark(measured.name, [&measured](benchmark::State& state) {
            for ([[maybe_unused]] const auto once : state) {
                measured.run();
            }
        });
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
