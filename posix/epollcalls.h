// SPDX-License-Identifier: MIT
//
// The calls of epoll.
#ifndef PLINTH_POSIX_EPOLLCALLS_H
#define PLINTH_POSIX_EPOLLCALLS_H

#include <sys/epoll.h>

#include "posix/syscalls.h"

namespace sys {

inline int epoll_create1(int flags) {
    return called(__func__, [=] { return ::epoll_create1(flags); });
}
inline int epoll_ctl(int set, int operation, int fd, epoll_event* event) {
    return called(__func__, [=] { return ::epoll_ctl(set, operation, fd, event); });
}
inline int epoll_wait(int set, epoll_event* ready, int most, int msec) {
    return called(__func__, [=] { return ::epoll_wait(set, ready, most, msec); });
}

} // namespace sys

#endif
