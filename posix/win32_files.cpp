// SPDX-License-Identifier: MIT
#include "outside/win32/files.h"

#include <algorithm>
#include <new>
#include <vector>

#include "outside/win32/handles.h"
#include "posix/filecalls.h"
#include "posix/innerlock.h"
#include "posix/polling.h"

namespace {

/// The descriptors that a forked process closes before it does anything else.
class KeptFromForks {
public:
    /// The one list. It is never destroyed: a process may be forked until the very end.
    static KeptFromForks& List() {
        const zelStopShield shield;
        static KeptFromForks& list = *new KeptFromForks;
        return list;
    }

    bool Add(int descriptor) {
        const std::lock_guard<posix::InnerLock> hold(guard);
        if (!noticesForks)
            noticesForks = NoticeForks();
        if (noticesForks)
            descriptors.push_back(descriptor);
        return noticesForks;
    }
    void Remove(int descriptor) {
        const std::lock_guard<posix::InnerLock> hold(guard);
        std::erase(descriptors, descriptor);
    }

private:
    KeptFromForks() = default;

    /// No fork happens while the list changes, and the forked process begins by emptying it.
    static bool NoticeForks() {
        return sys::pthread_atfork([] { List().guard.lock(); }, [] { List().guard.unlock(); },
                                   [] {
                                       List().CloseAll();
                                       List().guard.UnlockInCopy();
                                   }) == 0;
    }
    void CloseAll() {
        for (const int descriptor : descriptors)
            sys::close(descriptor);
        descriptors.clear();
    }

    posix::InnerLock guard;
    std::vector<int> descriptors;
    bool noticesForks = false;
};

} // namespace

bool LockFile(void* handle) {
    try {
        if (KeptFromForks::List().Add(zelDescriptorOfHandle(handle)))
            return true;
    } catch (const std::bad_alloc&) {
    }
    errno = ENOMEM;
    return false;
}

bool UnlockFile(void* handle) {
    const int descriptor = zelDescriptorOfHandle(handle);
    KeptFromForks::List().Remove(descriptor);
    return sys::retry([&] { return sys::flock(descriptor, LOCK_UN); }) == 0;
}

unsigned int GetCurrentProcessId() {
    return static_cast<unsigned int>(sys::getpid());
}

void Sleep(unsigned int milliseconds) {
    const sys::KeepErrno keep;
    posix::PollUntil(nullptr, 0, posix::Deadline::In(std::chrono::milliseconds(milliseconds)));
}
