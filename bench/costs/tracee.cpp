// SPDX-License-Identifier: MIT
//
// The side that is counted: the marks that it sets for the tracing process, and its allocations.
// They are counted in the place of malloc, and so below `new`, the library and the C library.
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "costs.h"
#include "trace.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

constinit std::atomic<long> allocations{0};
constinit std::atomic<bool> counting{false};

void Note() {
    if (counting)
        ++allocations;
}

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

extern "C" {

void* malloc(std::size_t size) {
    Note();
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    Note();
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    if (size != 0)
        Note();
    return __libc_realloc(block, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
    Note();
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    void* const made = memalign(alignment, size);
    if (made == nullptr)
        return ENOMEM;
    *block = made;
    return 0;
}
}
