// SPDX-License-Identifier: MIT
#include "outside/quillmarsh/sockets.h"

#include <algorithm>
#include <climits>

#include <netinet/in.h>
#include <netinet/tcp.h>

#include "posix/polling.h"
#include "posix/syscalls.h"

namespace {

// The numbers that the interface uses for "socket level" and "reuse address".
constexpr int interfaceSocketLevel = 65535;
constexpr int interfaceReuseAddress = 4;

int SetNumber(int socket, int level, int name, int value) {
    return sys::setsockopt(socket, level, name, &value, sizeof value);
}

bool IsTcp(int family, int type, int protocol) {
    return (family == AF_INET || family == AF_INET6) && type == SOCK_STREAM &&
           (protocol == 0 || protocol == IPPROTO_TCP);
}

/// The end of a connection attempt that goes on in the background.
int FinishConnect(int socket) {
    pollfd entry{socket, POLLOUT, 0};
    if (posix::PollUntil(&entry, 1, posix::Deadline::Never()) < 0)
        return -1;
    int error = 0;
    socklen_t size = sizeof error;
    if (sys::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) != 0)
        return -1;
    if (error == 0)
        return 0;
    errno = error;
    return -1;
}

/// The bytes that `call`, a send or receive of up to `length` bytes, moves.
template <typename Call>
int Transfer(int length, Call call) {
    if (length < 0) {
        errno = EINVAL;
        return -1;
    }
    return static_cast<int>(sys::retry([=] { return call(static_cast<size_t>(length)); }));
}

} // namespace

int zel_socket(int family, int type, int protocol) {
    const int made = sys::socket(family, type | SOCK_CLOEXEC, protocol);
    if (made < 0)
        return -1;
    if ((IsTcp(family, type, protocol) && SetNumber(made, IPPROTO_TCP, TCP_NODELAY, 1) != 0) ||
        (family == AF_INET6 && SetNumber(made, IPPROTO_IPV6, IPV6_V6ONLY, 0) != 0)) {
        const sys::KeepErrno keep;
        sys::close(made);
        return -1;
    }
    return made;
}

int zel_bind(int socket, const sockaddr* address, socklen_t length) {
    return sys::bind(socket, address, length);
}

int zel_connect(int socket, const sockaddr* address, socklen_t length) {
    const int before = errno;
    if (sys::connect(socket, address, length) == 0)
        return 0;
    // A second connect would report that the first one is under way.
    if (errno != EINTR || FinishConnect(socket) != 0)
        return -1;
    errno = before;
    return 0;
}

int zel_listen(int socket, int backlog) {
    return sys::listen(socket, backlog);
}

int zel_accept(int socket, sockaddr* address, socklen_t* length) {
    // A connection inherits TCP_NODELAY from its listener.
    return sys::retry([=] { return sys::accept4(socket, address, length, SOCK_CLOEXEC); });
}

int zel_setsockopt(int socket, int level, int name, const void* value, socklen_t size) {
    if (level == interfaceSocketLevel && name == interfaceReuseAddress)
        return sys::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, value, size);
    return sys::setsockopt(socket, level, name, value, size);
}

int zel_getsockname(int socket, sockaddr* address, socklen_t* length) {
    return sys::getsockname(socket, address, length);
}

int zel_getpeername(int socket, sockaddr* address, socklen_t* length) {
    return sys::getpeername(socket, address, length);
}

int zel_send(int socket, const void* data, int length, int flag) {
    return Transfer(
        length, [=](size_t size) { return sys::send(socket, data, size, flag | MSG_NOSIGNAL); });
}

int zel_send_both(int socket, const void* first, int firstLength, const void* second,
                  int secondLength) {
    if (firstLength < 0 || secondLength < 0) {
        errno = EINVAL;
        return -1;
    }
    // The sum must be counted in the result; and the system writes to none of the two.
    const auto most = std::min(secondLength, INT_MAX - firstLength);
    const iovec one{const_cast<void*>(first), static_cast<size_t>(firstLength)};
    const iovec other{const_cast<void*>(second), static_cast<size_t>(most)};
    return static_cast<int>(
        sys::retry([=] { return sys::sendmsg(socket, one, other, MSG_NOSIGNAL); }));
}

int zel_recv(int socket, void* data, int length, int flag) {
    const int received =
        Transfer(length, [=](size_t size) { return sys::recv(socket, data, size, flag); });
    if (received == 0)
        errno = 0;
    return received;
}

int zel_closesocket(int socket) {
    const int before = errno;
    if (sys::close(socket) != 0 && errno != EINTR)
        return -1;
    errno = before;
    return 0;
}
