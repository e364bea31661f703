// SPDX-License-Identifier: MIT
#include "posix/sigpipe.h"

#include "posix/syscalls.h"

namespace posix {

ssize_t WriteWithoutSignal(int descriptor, const void* data, size_t size) {
    sigset_t broken;
    sigemptyset(&broken);
    sigaddset(&broken, SIGPIPE);
    sigset_t before;
    sys::pthread_sigmask(SIG_BLOCK, &broken, &before);
    // Only a thread that had the signal blocked already can have one pending.
    const bool wasBlocked = sigismember(&before, SIGPIPE) == 1;
    bool wasPending = false;
    if (wasBlocked) {
        sigset_t pending;
        sys::sigpending(&pending);
        wasPending = sigismember(&pending, SIGPIPE) == 1;
    }
    const ssize_t written = sys::retry([&] { return sys::write(descriptor, data, size); });
    const sys::KeepErrno keep;
    // A reader that goes while part is written leaves the signal behind a short count.
    if (static_cast<size_t>(written) != size && !wasPending) {
        const timespec now{};
        sys::retry([&] { return sys::sigtimedwait(&broken, &now); });
    }
    if (!wasBlocked)
        sys::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return written;
}

} // namespace posix
