// SPDX-License-Identifier: MIT
//
// What a profile point costs, beside the two looks at the clock that it cannot do without.
#include <zelprof.h>

#include <ctime>

#include <benchmark/benchmark.h>

namespace {

void Point(benchmark::State& state) {
    static ProfileEntry entry("benchmark of a profile point");
    for (auto _ : state) {
        const ProfilePoint point(&entry);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(Point);

void NestedPoint(benchmark::State& state) {
    static ProfileEntry outer("benchmark of an outer point");
    static ProfileEntry inner("benchmark of an inner point");
    const ProfilePoint around(&outer);
    for (auto _ : state) {
        const ProfilePoint point(&inner);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(NestedPoint);

void TwoClockReads(benchmark::State& state) {
    timespec now;
    for (auto _ : state) {
        clock_gettime(CLOCK_REALTIME, &now);
        benchmark::DoNotOptimize(now);
        clock_gettime(CLOCK_REALTIME, &now);
        benchmark::DoNotOptimize(now);
    }
}
BENCHMARK(TwoClockReads);

} // namespace
