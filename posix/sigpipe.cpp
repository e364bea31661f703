// SPDX-License-Identifier: MIT
#include "posix/sigpipe.h"

#include <optional>

#include "posix/syscalls.h"

namespace posix {

namespace {

constexpr pid_t markOwner = -1; ///< no process has sent that

/// Takes away the SIGPIPE that is pending for this thread, where there is one, and leaves the one
/// that may be pending for the whole process. The system does not tell the two apart, but it keeps
/// one of each at the most and hands out the thread's first. So a marked one is sent to the
/// thread: it comes back if, and only if, the thread had none. Requires: the signal is blocked.
std::optional<siginfo_t> TakeFromThread(const sigset_t& broken) {
    siginfo_t mark{};
    mark.si_code = SI_USER;
    mark.si_pid = markOwner;
    const bool isMarked = sys::tgsigqueue(SIGPIPE, &mark) == 0;
    const timespec now{};
    siginfo_t taken{};
    if (sys::retry([&] { return sys::sigtimedwait(&broken, &taken, &now); }) == -1 ||
        (isMarked && taken.si_pid == markOwner))
        return std::nullopt;
    return taken;
}

} // namespace

ssize_t WriteWithoutSignal(int descriptor, const void* data, size_t size) {
    sigset_t broken;
    sigemptyset(&broken);
    sigaddset(&broken, SIGPIPE);
    sigset_t before;
    sys::pthread_sigmask(SIG_BLOCK, &broken, &before);
    // Only a thread that had the signal blocked already can have one pending.
    const bool wasBlocked = sigismember(&before, SIGPIPE) == 1;
    std::optional<siginfo_t> former;
    if (wasBlocked) {
        sigset_t pending;
        sys::sigpending(&pending);
        if (sigismember(&pending, SIGPIPE) == 1) {
            const sys::KeepErrno keep;
            former = TakeFromThread(broken);
        }
    }
    const ssize_t written = sys::retry([&] { return sys::write(descriptor, data, size); });
    const sys::KeepErrno keep;
    // A reader that goes while part is written leaves the signal behind a short count.
    if (static_cast<size_t>(written) != size)
        TakeFromThread(broken);
    if (former)
        sys::tgsigqueue(SIGPIPE, &*former);
    if (!wasBlocked)
        sys::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return written;
}

} // namespace posix
