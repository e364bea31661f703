// SPDX-License-Identifier: MIT
//
// The allocator behind every array. Sizes are in bytes.
//
// Exhaustion never shows as a null pointer: it is reported as `new` reports it (the new handler
// is asked as long as there is one, then std::bad_alloc is thrown), so callers test nothing.
// A block belongs to the caller and goes back through zelFree, never through `delete` or free.
// Any thread may call these functions, and free what another thread allocated.
#ifndef PLINTH_QUILLMARSH_MEMORY_H
#define PLINTH_QUILLMARSH_MEMORY_H

#include <cstddef>

#include "outside/zelexport.h"

/// A block of `size` bytes, contents undefined, aligned for any type but those that ask for more by
/// alignas. A size of 0 gives null.
[[nodiscard]] ZEL_EXPORT void* zelAlloc(std::size_t size);

/// Gives `block` (null counts as an empty block) a new size and returns its new address; the
/// contents up to the smaller size are kept. A size of 0 frees the block and gives null.
///
/// A growing block gets slack behind the size asked for, half of what it holds, as far as it has
/// none yet: appending n bytes in small fixed steps costs time in proportion to n, in every
/// thread. When memory has run out the old block is untouched.
[[nodiscard]] ZEL_EXPORT void* zelReAlloc(void* block, std::size_t newSize);

/// Releases `block`; null is allowed.
ZEL_EXPORT void zelFree(void* block);

/// Reports exhaustion the way `new` does: for sizes that no computation can express.
[[noreturn]] ZEL_EXPORT void zelOutOfMemory();

#endif
