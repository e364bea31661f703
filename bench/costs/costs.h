// SPDX-License-Identifier: MIT
//
// What operations cost in system calls and allocations, counted. A row does its operation some
// times to warm up and some times more to be counted, in a process of its own that another one
// traces: every call counts that its threads make into the kernel, those of the C library as well.
#ifndef PLINTH_COSTS_H
#define PLINTH_COSTS_H

#include <span>

namespace costs {

struct Row {
    const char* operation;
    void (*run)();
};

struct Family {
    const char* name;
    std::span<const Row> rows;
};

extern const Family memory, containers, text, records, streams, locks, tasks, children, events,
    connections, messages, files, folders;

// What is between Begin and End counts, but for what is between Pause and Continue.
void Begin();
void Pause();
void Continue();
void End();

/// Holds the calling thread up until all others have ended, so that what they do counts too and
/// nobody's turn depends on chance.
void AwaitThreads();

/// Ends the run of a row whose operation does not do what is counted.
void Require(bool holds, int line = __builtin_LINE());

constexpr int warmUps = 4, repetitions = 8;

/// Counts `operation`, each time after `prepare`.
template <typename Prepare, typename Operation>
void Count(Prepare prepare, Operation operation) {
    for (int i = 0; i < warmUps + repetitions; ++i) {
        prepare();
        Begin();
        operation();
        End();
    }
}

template <typename Operation>
void Count(Operation operation) {
    Count([] {}, operation);
}

} // namespace costs

#endif
