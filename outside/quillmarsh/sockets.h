// SPDX-License-Identifier: MIT
//
// The socket calls, with the BSD contract on integer descriptors; -1 is the invalid one. A call
// that fails leaves its cause as the last error, one that succeeds leaves the last error as it
// was. No call returns because of a signal.
//
// This header brings the system's socket headers along and stays inside the library.
#ifndef PLINTH_QUILLMARSH_SOCKETS_H
#define PLINTH_QUILLMARSH_SOCKETS_H

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

/// A new socket, closed on exec from the first moment. A TCP socket sends without delay
/// (TCP_NODELAY): a small prefix and what follows it never wait for an acknowledgement between
/// them. An IPv6 socket serves IPv4 too (IPV6_V6ONLY off).
int zel_socket(int family, int type, int protocol);

int zel_bind(int socket, const sockaddr* address, socklen_t length);

/// Connects; an interruption by a signal does not start a second attempt, the first one goes on.
int zel_connect(int socket, const sockaddr* address, socklen_t length);

int zel_listen(int socket, int backlog);

/// The next connection, closed on exec and without delay like those of zel_socket.
int zel_accept(int socket, sockaddr* address, socklen_t* length);

/// Sets an option. Level 65535, name 4 is the "socket level, reuse address" of the interface,
/// whatever the numbers of this platform are.
int zel_setsockopt(int socket, int level, int name, const void* value, socklen_t size);

int zel_getsockname(int socket, sockaddr* address, socklen_t* length);
int zel_getpeername(int socket, sockaddr* address, socklen_t* length);

/// Bytes sent, which may be fewer than `length`. A peer that is gone is a failure (EPIPE), never
/// SIGPIPE. A negative length is refused (EINVAL).
int zel_send(int socket, const void* data, int length, int flag);

/// Sends two blocks as one, with no flag: bytes of both that were sent, as of zel_send.
int zel_send_both(int socket, const void* first, int firstLength, const void* second,
                  int secondLength);

/// Bytes received. 0, the orderly end of the stream, clears the last error, so that it can be told
/// from a failure. A negative length is refused (EINVAL).
int zel_recv(int socket, void* data, int length, int flag);

/// Closes the descriptor, once: it is gone also when a signal interrupts the close.
int zel_closesocket(int socket);

#endif
