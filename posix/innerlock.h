// SPDX-License-Identifier: MIT
//
// A lock of the library's own, which no thread that is stopped takes along.
#ifndef PLINTH_POSIX_INNERLOCK_H
#define PLINTH_POSIX_INNERLOCK_H

#include <mutex>

#include "outside/win32/threads.h"

namespace posix {

/// A mutex whose holder, and whoever waits for it, is not stopped until it has let go. Nothing may
/// block under it. It needs neither making nor destroying.
class InnerLock {
public:
    constexpr InnerLock() = default;
    void lock() {
        zelStopShield::Raise(zelCurrentThread());
        mutex.lock();
    }
    void unlock() {
        mutex.unlock();
        zelStopShield::Lower(zelCurrentThread());
    }
    /// In a forked process, after its parent has locked: nobody stops anybody there.
    void UnlockInCopy() {
        zelCurrentThread().stopIsDue = 0;
        unlock();
    }

private:
    std::mutex mutex;
};

} // namespace posix

#endif
