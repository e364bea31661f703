// SPDX-License-Identifier: MIT
//
// Makes `new (std::nothrow) T[n]` fail on demand, in the library as in the test. Replaces a
// function of the whole program: for one source file of a binary.
#ifndef PLINTH_TESTS_FAILNEW_H
#define PLINTH_TESTS_FAILNEW_H

#include <new>

namespace failnew {
inline int after = -1; ///< how many more succeed before all fail; negative: all succeed
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    if (failnew::after == 0)
        return nullptr;
    if (failnew::after > 0)
        --failnew::after;
    try {
        return ::operator new[](size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

#endif
