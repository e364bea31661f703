// SPDX-License-Identifier: MIT
#include "outside/quillmarsh/memory.h"

#include <cstdint>
#include <cstdlib>
#include <new>

#include <malloc.h>

#include "posix/syscalls.h"

namespace {

/// Runs `allocate` until it gives a block, with the new handler in between as `new` does it.
/// No object is larger than PTRDIFF_MAX, whatever malloc would make of the number.
template <typename Allocate>
void* AllocateLikeNew(std::size_t size, Allocate allocate) {
    if (size <= PTRDIFF_MAX) {
        for (;;) {
            if (void* block = allocate())
                return block;
            const std::new_handler handler = std::get_new_handler();
            if (handler == nullptr)
                break;
            handler();
        }
    }
    zelOutOfMemory();
}

} // namespace

void zelOutOfMemory() {
    throw std::bad_alloc();
}

void* zelAlloc(std::size_t size) {
    if (size == 0)
        return nullptr;
    return AllocateLikeNew(size, [=] { return std::malloc(size); });
}

void* zelReAlloc(void* block, std::size_t newSize) {
    if (newSize == 0) {
        std::free(block);
        return nullptr;
    }
    if (block == nullptr)
        return zelAlloc(newSize);
    const std::size_t held = malloc_usable_size(block);
    if (newSize <= held) {
        // Slack is kept as long as it is no more than growing would have given.
        void* smaller = newSize < held - held / 2 ? std::realloc(block, newSize) : nullptr;
        return smaller != nullptr ? smaller : block; // the block in hand will do
    }
    const std::size_t withSlack = held + held / 2;
    if (withSlack > newSize) {
        const sys::KeepErrno keep; // without slack it may well succeed
        if (void* grown = std::realloc(block, withSlack))
            return grown;
    }
    return AllocateLikeNew(newSize, [=] { return std::realloc(block, newSize); });
}

void zelFree(void* block) {
    std::free(block);
}
