// SPDX-License-Identifier: MIT
#include "outside/win32/threads.h"

#include <new>

#include "posix/thread.h"

namespace {

class EntryThread final : public posix::Thread {
public:
    EntryThread(unsigned int (*called)(void*), void* passed) : entry(called), argument(passed) {}

private:
    unsigned int Run() override { return entry(argument); }

    unsigned int (*entry)(void*);
    void* argument;
};

} // namespace

void* _beginthreadex(void* security, unsigned int stackSize, unsigned int (*entry)(void*),
                     void* argument, unsigned int flags, unsigned int* id) {
    if (security != nullptr || flags != 0) {
        errno = EINVAL;
        return nullptr;
    }
    std::unique_ptr<posix::Thread> made(new (std::nothrow) EntryThread(entry, argument));
    posix::Thread* const thread = posix::Thread::Launch(std::move(made), stackSize);
    if (thread != nullptr && id != nullptr)
        *id = static_cast<unsigned int>(thread->Id());
    return static_cast<posix::HandleObject*>(thread);
}

bool TerminateThread(void* handle, unsigned int exitCode) {
    const int before = errno;
    posix::Thread* const thread = posix::Thread::FromHandle(handle);
    if (thread == nullptr) {
        errno = EBADF;
        return false;
    }
    const bool isGone = thread->Terminate(exitCode);
    if (isGone)
        errno = before;
    return isGone;
}

int zelTerminateSignal() {
    return SIGRTMIN + 11;
}

void zelNameThread() {
    posix::Thread::NameSelf();
}

void zelObeyStop() {
    posix::Thread::ObeyStop();
}

void* GetCurrentThread() {
    return zelCurrentThread().handle;
}

unsigned long GetCurrentThreadId() {
    return zelCurrentThread().id;
}

unsigned int WaitForSingleObject(void* handle, unsigned int msec) {
    if (handle == nullptr || (reinterpret_cast<std::uintptr_t>(handle) & 1) != 0) {
        errno = EBADF;
        return zelWaitFailed;
    }
    const posix::Deadline deadline = msec == zelWaitInfinite
                                         ? posix::Deadline::Never()
                                         : posix::Deadline::In(std::chrono::milliseconds(msec));
    const std::optional<bool> signaled = static_cast<posix::HandleObject*>(handle)->Wait(deadline);
    if (!signaled) {
        errno = EBADF;
        return zelWaitFailed;
    }
    return *signaled ? zelWaitSignaled : zelWaitTimeout;
}
