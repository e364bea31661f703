// SPDX-License-Identifier: MIT
//
// The allocator of the whole program, with a budget: the n-th allocation of all threads fails. It
// stands in the place of malloc, and so below `new`, the library's own calls and the C library's.
#ifndef PLINTH_SWEEP_BUDGET_H
#define PLINTH_SWEEP_BUDGET_H

namespace budget {

/// Counts down with each allocation. The one that meets 1 fails, and all after it too if `forGood`.
void Set(long allocations, bool forGood);
/// Takes the budget away; allocations succeed again. What was left of it: 0 or less once it was
/// used up.
long Stop();

long LiveBlocks();

} // namespace budget

#endif
