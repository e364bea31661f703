// SPDX-License-Identifier: MIT
//
// Counts what is taken from the heap, in the library as in the test. Replaces functions of the
// whole program: for one source file of a binary.
#ifndef PLINTH_TESTS_COUNTNEW_H
#define PLINTH_TESTS_COUNTNEW_H

#include <cstdlib>
#include <new>

namespace countnew {
inline long allocations = 0;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    ++countnew::allocations;
    return std::malloc(size);
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
