// SPDX-License-Identifier: MIT
//
// The thin header between the platform layer and the system: every system call of posix/ is made
// through a name in here, so that a build for tests can make the n-th call of a name fail, be
// interrupted, or move one byte. Each is the call of that name, nothing more.
#ifndef PLINTH_POSIX_SYSCALLS_H
#define PLINTH_POSIX_SYSCALLS_H

#include <cerrno>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sys {

inline int close(int fd) {
    return ::close(fd);
}
inline ssize_t read(int fd, void* data, size_t size) {
    return ::read(fd, data, size);
}
inline ssize_t write(int fd, const void* data, size_t size) {
    return ::write(fd, data, size);
}
inline int ppoll(pollfd* set, nfds_t count, const timespec* wait) {
    return ::ppoll(set, count, wait, nullptr);
}

/// Calls `call` again for as long as a signal interrupts it.
template <typename Call>
auto retry(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR)
        result = call();
    return result;
}

/// Puts errno back at the end of a scope that must not disturb it.
class KeepErrno {
public:
    KeepErrno() : saved(errno) {}
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;
    ~KeepErrno() { errno = saved; }

private:
    int saved;
};

} // namespace sys

#endif
