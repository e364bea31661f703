// SPDX-License-Identifier: MIT
#include "budget.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

#include <dlfcn.h>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

constinit std::atomic<long> left{0};
constinit std::atomic<bool> set{false}, forGood{false};
constinit std::atomic<long> live{0};
[[gnu::tls_model("initial-exec")]] thread_local constinit bool exempt = false;

bool Refused() {
    if (exempt || !set.load(std::memory_order_relaxed))
        return false;
    const long now = left.fetch_sub(1);
    if (now > 1 || (now < 1 && !forGood))
        return false;
    errno = ENOMEM;
    return true;
}

void* Counted(void* block) {
    if (block != nullptr)
        live.fetch_add(1, std::memory_order_relaxed);
    return block;
}

} // namespace

namespace budget {

void Set(long allocations, bool all) {
    left = allocations;
    forGood = all;
    set = true;
}

long Stop() {
    set = false;
    return left;
}

long LiveBlocks() {
    return live;
}

} // namespace budget

extern "C" {

/// The C library ends the process when it finds no memory to note the destructor of a thread-local
/// object, as a thread of the library has one: there is nothing to look at after that.
int __cxa_thread_atexit_impl(void (*destructor)(void*), void* object, void* library) {
    static const auto next = reinterpret_cast<decltype(&__cxa_thread_atexit_impl)>(
        dlsym(RTLD_NEXT, "__cxa_thread_atexit_impl"));
    const bool before = exempt;
    exempt = true;
    const int result = next(destructor, object, library);
    exempt = before;
    return result;
}

void* malloc(std::size_t size) {
    return Refused() ? nullptr : Counted(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    return Refused() ? nullptr : Counted(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) {
    if (size != 0 && Refused())
        return nullptr;
    void* const moved = __libc_realloc(block, size);
    if (block == nullptr)
        Counted(moved);
    else if (size == 0)
        live.fetch_sub(1, std::memory_order_relaxed);
    return moved;
}

void* memalign(std::size_t alignment, std::size_t size) {
    return Refused() ? nullptr : Counted(__libc_memalign(alignment, size));
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

void free(void* block) {
    if (block != nullptr)
        live.fetch_sub(1, std::memory_order_relaxed);
    __libc_free(block);
}
}
