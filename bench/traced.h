// SPDX-License-Identifier: MIT
#ifndef PLINTH_BENCH_TRACED_H
#define PLINTH_BENCH_TRACED_H

#include <csignal>

#include <sys/ptrace.h>
#include <unistd.h>

/// Does `work` in a forked process that the caller traces, and that stops before it begins. Where
/// processes cannot be traced it ends at once, with status 1.
template <typename Work>
pid_t ForkTraced(Work work) {
    const pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
            _exit(1);
        raise(SIGSTOP);
        work();
        _exit(0);
    }
    return child;
}

#endif
