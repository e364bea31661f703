// SPDX-License-Identifier: MIT
//
// What threads wait for each other with: critical sections and counting semaphores. Both sleep
// while they wait, and neither is fair: whoever comes in time takes the turn.
#ifndef PLINTH_WIN32_LOCKS_H
#define PLINTH_WIN32_LOCKS_H

#include <atomic>
#include <cstdint>

#include "outside/zelexport.h"

class zelStopShield;

/// A lock for one thread at a time, not recursive. It owns nothing of the system; one in storage
/// that is all zero is free. Entering and leaving a free one is one atomic operation each.
struct CRITICAL_SECTION {
    /// 0 free, 1 held, 2 held and perhaps waited for.
    std::atomic<std::uint32_t> state;
};

/// Makes the section free, whatever its storage held. Requires: nobody holds it or waits.
inline void InitializeCriticalSection(CRITICAL_SECTION* section) {
    section->state.store(0, std::memory_order_relaxed);
}
inline void DeleteCriticalSection(CRITICAL_SECTION*) {} ///< does nothing

/// The rest of entering and leaving, where others hold the section or wait for it. A thread that is
/// stopped in there leaves no wake-up owing to the others.
ZEL_EXPORT void zelEnterHeldSection(CRITICAL_SECTION* section);
/// Back after any wake-up, a false one included; whoever is stopped in there passes his on.
/// Requires: the state was 2, or there is no sleep.
void zelSleepAtHeldSection(CRITICAL_SECTION* section, zelStopShield& shield);
void zelWakeAtHeldSection(CRITICAL_SECTION* section); ///< makes the state 1 and wakes one of them
ZEL_EXPORT void zelLeaveSharedSection(CRITICAL_SECTION* section); ///< the rest of leaving

/// Requires: the calling thread does not hold the section, or it waits for itself for ever.
inline void EnterCriticalSection(CRITICAL_SECTION* section) {
    std::uint32_t expected = 0;
    if (!section->state.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                                std::memory_order_relaxed))
        zelEnterHeldSection(section);
}
/// Requires: the calling thread holds the section.
inline void LeaveCriticalSection(CRITICAL_SECTION* section) {
    std::uint32_t expected = 1;
    if (!section->state.compare_exchange_strong(expected, 0, std::memory_order_release,
                                                std::memory_order_relaxed))
        zelLeaveSharedSection(section);
}

/// A new semaphore with a count and its ceiling, as a handle (see handles.h) that
/// WaitForSingleObject (see threads.h) takes one from. Null on failure, with the last error set:
/// no memory, or numbers that make no sense (EINVAL).
/// Requires: `security` and `name` are null.
[[nodiscard]] ZEL_EXPORT void* uCreateSemaphore(void* security, long count, long ceiling,
                                                const char* name);

/// Adds `count` to a semaphore and wakes as many. False, and nothing changes, when that goes above
/// the ceiling or `count` is not above 0. `previous`, unless null, takes the count before.
[[nodiscard]] ZEL_EXPORT bool ReleaseSemaphore(void* semaphore, long count, long* previous);

#endif
