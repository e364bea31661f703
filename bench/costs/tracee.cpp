// SPDX-License-Identifier: MIT
//
// The side that is counted: the marks that it sets for the tracing process, and its allocations.
// They are counted in the place of malloc, and so below `new`, the library and the C library.
#include <atomic>
#include <cerrno>
#include <cstdio>

#include <unistd.h>

#include "costs.h"
#include "fuzz/support/allocator.h"
#include "trace.h"

namespace {

constinit std::atomic<long> allocations{0};
constinit std::atomic<bool> counting{false};

/// A system call that there is none of; only the tracing process makes something of it.
void SetMark(costs::Mark mark, long value = 0) {
    const int before = errno;
    syscall(costs::markCall, static_cast<long>(mark), value);
    errno = before;
}

} // namespace

namespace costs {

void Begin() {
    SetMark(Mark::Begin);
    allocations = 0;
    counting = true;
}

void Pause() {
    counting = false;
    SetMark(Mark::Pause);
}

void Continue() {
    SetMark(Mark::Continue);
    counting = true;
}

void End() {
    counting = false;
    SetMark(Mark::End, allocations);
}

void AwaitThreads() {
    SetMark(Mark::AwaitThreads);
}

void Require(bool holds, int line) {
    if (!holds) {
        std::fprintf(stderr, "it does not do what is counted (line %d)\n", line);
        _exit(1);
    }
}

} // namespace costs

bool allocator::Allows() {
    if (counting)
        ++allocations;
    return true;
}

void allocator::OnBlock(int) {}
