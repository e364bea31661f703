// SPDX-License-Identifier: MIT
//
// The allocator of a whole program, below `new`, the library's own calls and those of the C
// library. A program that is linked with it defines both functions. They are called on any thread
// and before main, and must not allocate.
#ifndef PLINTH_FUZZ_ALLOCATOR_H
#define PLINTH_FUZZ_ALLOCATOR_H

namespace allocator {

/// Whether a block may be had, or be given another size; errno tells the reason if not.
bool Allows();
/// There is one block more (1) or less (-1).
void OnBlock(int change);

} // namespace allocator

#endif
