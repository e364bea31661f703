// SPDX-License-Identifier: MIT
#include "posix/childwatch.h"

#include "posix/keeploaded.h"
#include "posix/processcalls.h"
#include "posix/threadcalls.h"

namespace posix {

namespace {

struct Watch {
    pid_t id;
    SharedDescriptor end;
};

void* AwaitEnd(void* argument) {
    const std::unique_ptr<Watch> watch(static_cast<Watch*>(argument));
    siginfo_t info;
    sys::retry(
        [&] { return sys::waitid(P_PID, static_cast<id_t>(watch->id), &info, WEXITED | WNOWAIT); });
    sys::eventfd_write(*watch->end, 1);
    return nullptr;
}

} // namespace

SharedDescriptor NoDescriptor() {
    return {new int(-1), [](int* descriptor) {
                const sys::KeepErrno keep;
                if (*descriptor != -1)
                    sys::close(*descriptor);
                delete descriptor;
            }};
}

SharedDescriptor SignaledDescriptor() {
    SharedDescriptor end = NoDescriptor();
    *end = sys::eventfd(1, EFD_CLOEXEC);
    return end;
}

SharedDescriptor WatchChild(pid_t id) {
    auto watch = std::make_unique<Watch>(Watch{id, NoDescriptor()});
    SharedDescriptor end = watch->end;
    *end = sys::eventfd(0, EFD_CLOEXEC);
    if (*end == -1)
        return end;
    KeepLoaded();
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    sigset_t all, before;
    sigfillset(&all);
    sys::pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    const bool started = sys::pthread_create(&thread, &attributes, AwaitEnd, watch.get()) == 0;
    sys::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    if (!started)
        return NoDescriptor();
    static_cast<void>(watch.release()); // the thread's own now
    return end;
}

} // namespace posix
