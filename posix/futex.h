// SPDX-License-Identifier: MIT
//
// Sleeping on a word in memory. Both calls leave errno alone and may be made in signal handlers.
#ifndef PLINTH_POSIX_FUTEX_H
#define PLINTH_POSIX_FUTEX_H

#include <atomic>
#include <climits>
#include <cstdint>

#include <linux/futex.h>

#include "posix/polling.h"
#include "posix/threadcalls.h"

namespace posix {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

/// Sleeps as long as `word` holds `expected` and nobody wakes it. It may come back early, by a
/// signal for one: callers look at their condition, and at their deadline, again.
inline void FutexWait(const std::atomic<std::uint32_t>& word, std::uint32_t expected,
                      const Deadline& deadline) {
    const sys::KeepErrno keep;
    const std::optional<std::chrono::nanoseconds> left = deadline.Left();
    if (!left) {
        sys::futex(&word, FUTEX_WAIT_PRIVATE, expected, nullptr);
        return;
    }
    const long wait[2] = {static_cast<long>(left->count() / 1'000'000'000),
                          static_cast<long>(left->count() % 1'000'000'000)};
    sys::futex(&word, FUTEX_WAIT_PRIVATE, expected, wait);
}

/// Wakes `count` sleepers. The word itself is not touched: it may be gone already.
inline void FutexWake(const std::atomic<std::uint32_t>& word, int count) {
    const sys::KeepErrno keep;
    sys::futex(&word, FUTEX_WAKE_PRIVATE, static_cast<unsigned int>(count), nullptr);
}

inline void FutexWakeAll(const std::atomic<std::uint32_t>& word) {
    FutexWake(word, INT_MAX);
}

} // namespace posix

#endif
