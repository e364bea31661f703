// SPDX-License-Identifier: MIT
//
// A row of the comparison with peers: one program, in which every contender does the same work. A
// row enters in `Contestants` what each contender does for each of its measures; contest.cpp has
// the main program.
#ifndef PLINTH_BENCH_PEERS_CONTEST_H
#define PLINTH_BENCH_PEERS_CONTEST_H

#include <cstddef>
#include <string>

#include <benchmark/benchmark.h>

namespace contest {

/// What is measured: a name, and how much of it where the report shows how cost grows.
struct Measure {
    std::string name;
    std::size_t size = 0;
};

/// The contender that every other is compared with.
inline constexpr const char* Plinth = "Plinth";

/// The plainest code that could do the job: nothing offers the service for less.
inline constexpr const char* PlainCode = "limit";

/// The plainest system calls that could do the job.
inline constexpr const char* SystemCalls = "limit (system calls)";

/// Enters `contender` for `measure`. `work` is called as work(benchmark::State&) and does the same
/// as that of every other contender in each of the state's rounds; what it makes before and behind
/// its loop is not measured. Time is that of the clock, so that work of other threads and of the
/// system counts. The benchmark is returned for those who have more to say, such as the fewest
/// rounds.
template <typename Work>
benchmark::internal::Benchmark* Contend(const Measure& measure, const std::string& contender,
                                        Work work) {
    std::string name = measure.name + "|" + contender;
    if (measure.size != 0)
        name += "|" + std::to_string(measure.size);
    return benchmark::RegisterBenchmark(name.c_str(), work)->UseRealTime();
}

} // namespace contest

/// Defined by each row: enters all of its contenders.
void Contestants();

#endif
