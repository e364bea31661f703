// SPDX-License-Identifier: MIT
//
// The thin header between the platform layer and the system: every system call of posix/ is made
// through a name in here, so that a build for tests can make the n-th call of a name fail, be
// interrupted, or move one byte (faultplan.h). Elsewhere each is the call of that name, nothing
// more.
#ifndef PLINTH_POSIX_SYSCALLS_H
#define PLINTH_POSIX_SYSCALLS_H

#include <algorithm>
#include <cerrno>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#ifdef PLINTH_FAULTS
#include "posix/faultplan.h"
#endif

namespace sys {

#ifndef PLINTH_FAULTS
/// A call that tells of a failure through errno.
template <typename Call>
auto called(const char*, Call call) {
    return call();
}
/// One that returns the number of the error.
template <typename Call>
auto numbered(const char*, Call call) {
    return call();
}
/// One that may move fewer bytes than it is asked to.
template <typename Call>
auto transfer(const char*, size_t size, Call call) {
    return call(size);
}
#endif

inline int close(int fd) {
    return called(__func__, [=] { return ::close(fd); });
}
inline ssize_t read(int fd, void* data, size_t size) {
    return transfer(__func__, size, [=](size_t most) { return ::read(fd, data, most); });
}
inline ssize_t write(int fd, const void* data, size_t size) {
    return transfer(__func__, size, [=](size_t most) { return ::write(fd, data, most); });
}
inline int fcntl(int fd, int command, int argument) {
    return called(__func__, [=] { return ::fcntl(fd, command, argument); });
}
inline int fstat(int fd, struct stat* facts) {
    return called(__func__, [=] { return ::fstat(fd, facts); });
}
inline int ioctl(int fd, unsigned long request, void* argument) {
    return called(__func__, [=] { return ::ioctl(fd, request, argument); });
}
inline int pipe2(int* ends, int flags) {
    return called(__func__, [=] { return ::pipe2(ends, flags); });
}
inline int ppoll(pollfd* set, nfds_t count, const timespec* wait) {
    return called(__func__, [=] { return ::ppoll(set, count, wait, nullptr); });
}

inline int clock_gettime(clockid_t clock, timespec* now) {
    return ::clock_gettime(clock, now);
}

inline int socket(int family, int type, int protocol) {
    return called(__func__, [=] { return ::socket(family, type, protocol); });
}
inline int bind(int fd, const sockaddr* address, socklen_t length) {
    return called(__func__, [=] { return ::bind(fd, address, length); });
}
inline int listen(int fd, int backlog) {
    return called(__func__, [=] { return ::listen(fd, backlog); });
}
inline int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    return called(__func__, [=] { return ::accept4(fd, address, length, flags); });
}
inline int connect(int fd, const sockaddr* address, socklen_t length) {
    return called(__func__, [=] { return ::connect(fd, address, length); });
}
inline int getsockopt(int fd, int level, int name, void* value, socklen_t* size) {
    return called(__func__, [=] { return ::getsockopt(fd, level, name, value, size); });
}
inline int setsockopt(int fd, int level, int name, const void* value, socklen_t size) {
    return called(__func__, [=] { return ::setsockopt(fd, level, name, value, size); });
}
inline int getsockname(int fd, sockaddr* address, socklen_t* length) {
    return called(__func__, [=] { return ::getsockname(fd, address, length); });
}
inline int getpeername(int fd, sockaddr* address, socklen_t* length) {
    return called(__func__, [=] { return ::getpeername(fd, address, length); });
}
inline ssize_t send(int fd, const void* data, size_t size, int flags) {
    return transfer(__func__, size, [=](size_t most) { return ::send(fd, data, most, flags); });
}
/// The first `most` bytes of two parts as one.
inline ssize_t SendParts(int fd, iovec first, iovec second, size_t most, int flags) {
    const size_t begin = std::min(first.iov_len, most);
    iovec parts[] = {{first.iov_base, begin},
                     {second.iov_base, std::min(second.iov_len, most - begin)}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    return ::sendmsg(fd, &message, flags);
}
inline ssize_t sendmsg(int fd, iovec first, iovec second, int flags) {
    const size_t size = first.iov_len + second.iov_len;
    return transfer(__func__, size,
                    [=](size_t most) { return SendParts(fd, first, second, most, flags); });
}
inline ssize_t recv(int fd, void* data, size_t size, int flags) {
    return transfer(__func__, size, [=](size_t most) { return ::recv(fd, data, most, flags); });
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
    return called(__func__, [=] { return ::sigtimedwait(set, info, wait); });
}
/// To the calling thread.
inline int tgsigqueue(int signal, siginfo_t* info) {
    return static_cast<int>(::syscall(SYS_rt_tgsigqueueinfo, ::getpid(), ::gettid(), signal, info));
}

inline pid_t getpid() {
    return ::getpid();
}
inline int pthread_atfork(void (*before)(), void (*inParent)(), void (*inChild)()) {
    return ::pthread_atfork(before, inParent, inChild);
}

/// Calls `call` again for as long as a signal interrupts it. In the end errno has changed only if
/// the call has failed. Inline for sure: the processor forgets in a call of the system where the
/// functions around it return to, so that each of them costs more than it looks.
template <typename Call>
[[gnu::always_inline]] inline auto retry(Call call) {
    const int before = errno;
    for (;;) {
        const auto result = call();
        if (result != -1) {
            errno = before;
            return result;
        }
        if (errno != EINTR)
            return result;
    }
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
