// SPDX-License-Identifier: MIT
//
// The thin header between the platform layer and the system: every system call of posix/ is made
// through a name in here, so that a build for tests can make the n-th call of a name fail, be
// interrupted, or move one byte. Each is the call of that name, nothing more.
#ifndef PLINTH_POSIX_SYSCALLS_H
#define PLINTH_POSIX_SYSCALLS_H

#include <cerrno>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
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
inline int fcntl(int fd, int command, int argument) {
    return ::fcntl(fd, command, argument);
}
inline int fstat(int fd, struct stat* facts) {
    return ::fstat(fd, facts);
}
inline int ioctl(int fd, unsigned long request, void* argument) {
    return ::ioctl(fd, request, argument);
}
inline int pipe2(int* ends, int flags) {
    return ::pipe2(ends, flags);
}
inline int ppoll(pollfd* set, nfds_t count, const timespec* wait) {
    return ::ppoll(set, count, wait, nullptr);
}

inline int clock_gettime(clockid_t clock, timespec* now) {
    return ::clock_gettime(clock, now);
}

inline int socket(int family, int type, int protocol) {
    return ::socket(family, type, protocol);
}
inline int bind(int fd, const sockaddr* address, socklen_t length) {
    return ::bind(fd, address, length);
}
inline int listen(int fd, int backlog) {
    return ::listen(fd, backlog);
}
inline int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    return ::accept4(fd, address, length, flags);
}
inline int connect(int fd, const sockaddr* address, socklen_t length) {
    return ::connect(fd, address, length);
}
inline int getsockopt(int fd, int level, int name, void* value, socklen_t* size) {
    return ::getsockopt(fd, level, name, value, size);
}
inline int setsockopt(int fd, int level, int name, const void* value, socklen_t size) {
    return ::setsockopt(fd, level, name, value, size);
}
inline int getsockname(int fd, sockaddr* address, socklen_t* length) {
    return ::getsockname(fd, address, length);
}
inline int getpeername(int fd, sockaddr* address, socklen_t* length) {
    return ::getpeername(fd, address, length);
}
inline ssize_t send(int fd, const void* data, size_t size, int flags) {
    return ::send(fd, data, size, flags);
}
inline ssize_t recv(int fd, void* data, size_t size, int flags) {
    return ::recv(fd, data, size, flags);
}

inline int pthread_sigmask(int how, const sigset_t* set, sigset_t* old) {
    return ::pthread_sigmask(how, set, old);
}
inline int sigaction(int signal, const struct sigaction* action, struct sigaction* former) {
    return ::sigaction(signal, action, former);
}
inline int sigpending(sigset_t* set) {
    return ::sigpending(set);
}
inline int sigtimedwait(const sigset_t* set, siginfo_t* info, const timespec* wait) {
    return ::sigtimedwait(set, info, wait);
}
/// To the calling thread.
inline int tgsigqueue(int signal, siginfo_t* info) {
    return static_cast<int>(::syscall(SYS_rt_tgsigqueueinfo, ::getpid(), ::gettid(), signal, info));
}

/// Calls `call` again for as long as a signal interrupts it. In the end errno has changed only if
/// the call has failed.
template <typename Call>
auto retry(Call call) {
    const int before = errno;
    auto result = call();
    while (result == -1 && errno == EINTR)
        result = call();
    if (result != -1)
        errno = before;
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
