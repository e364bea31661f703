// SPDX-License-Identifier: MIT
//
// The side that counts.
#ifndef PLINTH_COSTS_TRACE_H
#define PLINTH_COSTS_TRACE_H

#include <map>
#include <optional>
#include <vector>

namespace costs {

constexpr long markCall = 100000;
enum class Mark : long { Begin = 1, Pause, Continue, End, AwaitThreads };

/// What one repetition took.
struct Taken {
    std::map<long, int> calls;      ///< of the process, by their numbers
    std::map<long, int> childCalls; ///< of its children, before each becomes its program
    long allocations = 0;
};

/// Runs `work` in a traced process and gives its repetitions; none if it fails, or where processes
/// cannot be traced.
std::optional<std::vector<Taken>> CountsOf(void (*work)());

} // namespace costs

#endif
