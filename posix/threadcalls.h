// SPDX-License-Identifier: MIT
//
// The system calls of threads and of what they wait with: see syscalls.h.
#ifndef PLINTH_POSIX_THREADCALLS_H
#define PLINTH_POSIX_THREADCALLS_H

#include <csignal>
#include <ctime>

#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>

#include "posix/syscalls.h"

namespace sys {

inline int eventfd(unsigned int count, int flags) {
    return called(__func__, [=] { return ::eventfd(count, flags); });
}
inline int eventfd_write(int fd, eventfd_t count) {
    return called(__func__, [=] { return ::eventfd_write(fd, count); });
}
/// The classic call with its classic record of the time: two longs on every platform.
inline long futex(const void* word, int operation, unsigned int value, const long* wait) {
    const auto call = [=] {
        return ::syscall(SYS_futex, word, operation, value, wait, nullptr, 0);
    };
    return operation == FUTEX_WAIT_PRIVATE ? called(__func__, call) : call(); // waking cannot fail
}

inline pid_t gettid() {
    return static_cast<pid_t>(::syscall(SYS_gettid));
}
inline int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument) {
    return numbered(__func__,
                    [=] { return ::pthread_create(thread, attributes, entry, argument); });
}
/// The calling thread goes, and nothing of it is tidied up.
[[noreturn]] inline void exit_thread() {
    for (;;)
        ::syscall(SYS_exit, 0);
}
inline int pthread_sigqueue(pthread_t thread, int number, sigval value) {
    // By reference: a copy of the union would be stored and read again, though nobody looks at it.
    return numbered(__func__, [&] { return ::pthread_sigqueue(thread, number, value); });
}
inline int sched_yield() {
    return ::sched_yield();
}
inline long tgkill(pid_t process, pid_t thread, int number) {
    return called(__func__, [=] { return ::syscall(SYS_tgkill, process, thread, number); });
}
inline int timer_create(clockid_t clock, sigevent* event, timer_t* timer) {
    return called(__func__, [=] { return ::timer_create(clock, event, timer); });
}
inline int timer_delete(timer_t timer) {
    return ::timer_delete(timer);
}
inline int timer_settime(timer_t timer, int flags, const itimerspec* wanted, itimerspec* before) {
    return called(__func__, [=] { return ::timer_settime(timer, flags, wanted, before); });
}

} // namespace sys

#endif
