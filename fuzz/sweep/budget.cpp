// SPDX-License-Identifier: MIT
#include "budget.h"

#include <atomic>
#include <cerrno>

#include <dlfcn.h>

#include "fuzz/support/allocator.h"

namespace {

constinit std::atomic<long> left{0};
constinit std::atomic<bool> set{false}, forGood{false};
constinit std::atomic<long> live{0};
[[gnu::tls_model("initial-exec")]] thread_local constinit bool exempt = false;

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

bool allocator::Allows() {
    if (exempt || !set.load(std::memory_order_relaxed))
        return true;
    const long now = left.fetch_sub(1);
    if (now > 1 || (now < 1 && !forGood))
        return true;
    errno = ENOMEM;
    return false;
}

void allocator::OnBlock(int change) {
    live.fetch_add(change, std::memory_order_relaxed);
}

/// The C library ends the process when it finds no memory to note the destructor of a thread-local
/// object, as a thread of the library has one: there is nothing to look at after that.
extern "C" int __cxa_thread_atexit_impl(void (*destructor)(void*), void* object, void* library) {
    static const auto next = reinterpret_cast<decltype(&__cxa_thread_atexit_impl)>(
        dlsym(RTLD_NEXT, "__cxa_thread_atexit_impl"));
    const bool before = exempt;
    exempt = true;
    const int result = next(destructor, object, library);
    exempt = before;
    return result;
}
