// SPDX-License-Identifier: MIT
//
// Counts what is taken from the heap by this thread, in the library as in the test, and lets the
// heap be exhausted. Replaces functions of the whole program: for one source file of a binary.
#ifndef PLINTH_TESTS_COUNTNEW_H
#define PLINTH_TESTS_COUNTNEW_H

#include <cstdlib>
#include <new>

namespace countnew {
inline thread_local long allocations = 0, bytes = 0;
inline thread_local bool exhausted = false;
} // namespace countnew

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    ++countnew::allocations;
    countnew::bytes += static_cast<long>(size);
    return countnew::exhausted ? nullptr : std::malloc(size != 0 ? size : 1);
}

void* operator new(std::size_t size) {
    void* const block = operator new(size, std::nothrow);
    return block != nullptr ? block : throw std::bad_alloc();
}

// Inlined, each half of a pair alone would look like a mistake to the compiler.
[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}

[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

#endif
