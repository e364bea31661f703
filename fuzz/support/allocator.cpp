// SPDX-License-Identifier: MIT
#include "fuzz/support/allocator.h"

#include <cerrno>
#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

void* Counted(void* block) {
    if (block != nullptr)
        allocator::OnBlock(1);
    return block;
}

} // namespace

extern "C" {

void* malloc(std::size_t size) {
    return allocator::Allows() ? Counted(__libc_malloc(size)) : nullptr;
}

void* calloc(std::size_t count, std::size_t size) {
    return allocator::Allows() ? Counted(__libc_calloc(count, size)) : nullptr;
}

void* realloc(void* block, std::size_t size) {
    if (size != 0 && !allocator::Allows())
        return nullptr;
    void* const moved = __libc_realloc(block, size);
    if (block == nullptr)
        Counted(moved);
    else if (size == 0)
        allocator::OnBlock(-1);
    return moved;
}

void* memalign(std::size_t alignment, std::size_t size) {
    return allocator::Allows() ? Counted(__libc_memalign(alignment, size)) : nullptr;
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
        allocator::OnBlock(-1);
    __libc_free(block);
}
}
