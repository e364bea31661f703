// SPDX-License-Identifier: MIT
//
// How many system calls something takes.
#ifndef PLINTH_BENCH_SYSTEMCALLS_H
#define PLINTH_BENCH_SYSTEMCALLS_H

#include <benchmark/benchmark.h>
#include <sys/wait.h>

#include "bench/traced.h"

/// The system calls that a forked process makes for `work`; -1 where it cannot be traced.
template <typename Work>
double SystemCallsOf(Work work) {
    const pid_t child = ForkTraced(work);
    int status = 0;
    double stops = 0; // one when a call begins and one when it ends, but for the last
    while (waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        ++stops;
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    }
    return stops != 0 ? stops / 2 : -1;
}

/// Adds to the figures of a benchmark what one `work` takes in system calls, as the mean of a
/// hundred in a forked process.
template <typename Work>
void CountSystemCalls(benchmark::State& state, Work work) {
    const double none = SystemCallsOf([] {}), all = SystemCallsOf([&] {
                                                  for (int i = 0; i < 100; ++i)
                                                      work();
                                              });
    state.counters["system calls"] = none < 0 ? none : (all - none) / 100;
}

#endif
