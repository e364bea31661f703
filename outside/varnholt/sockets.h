// SPDX-License-Identifier: MIT
//
// Names, addresses and readiness of sockets. This header is the way by which `fd_set` and
// `timeval` reach the library and its callers; who needs the fields of an `addrinfo` or of an
// address includes the system's headers.
//
// A socket is a descriptor in an `unsigned int`; -1 (all bits set) is the invalid one. Every call
// leaves the last error as it was when it succeeds, and none returns because of a signal.
#ifndef PLINTH_VARNHOLT_SOCKETS_H
#define PLINTH_VARNHOLT_SOCKETS_H

#include <sys/select.h>

#include "outside/zelexport.h"

struct addrinfo;
struct sockaddr;

// _TIME_BITS would make a record that the library takes for another one.
static_assert(sizeof(timeval::tv_sec) == sizeof(long), "a timeval as without _TIME_BITS=64");

/// Resolves a node and a service as getaddrinfo does (POSIX.1-2017, RFC 3493): 0 and `*list`, or
/// another number with the cause as the last error and `*list` null. An unknown name, and one that
/// cannot be resolved now, are EADDRNOTAVAIL.
///
/// What is decided here and not by the system:
/// - a service that is no number from 0 to 65535 is refused (EINVAL), where the system's own
///   resolver would cut it; a null service is port 0;
/// - a passive query without a node puts the IPv6 entry first where the host can make an IPv6
///   socket, because that one accepts IPv4 too (see zel_socket), and IPv4 first elsewhere;
/// - of the addresses of a name, IPv4 loopback addresses come first.
///
/// The list goes back through zel_free_nodeaddrinfo.
ZEL_EXPORT int zel_get_nodeaddrinfo(const char* node, const char* service, const addrinfo* hints,
                                    addrinfo** list);

/// Releases a list; null is allowed.
ZEL_EXPORT void zel_free_nodeaddrinfo(addrinfo* list);

/// The name of an IPv4 or IPv6 address as getnameinfo gives it: 0 is success. `host` and `service`
/// may be null with a size of 0. An IPv4 address in IPv6 form (RFC 4291, 2.5.5.2), as a socket for
/// both shows it, has the name of the IPv4 address.
ZEL_EXPORT int zel_get_nodenameinfo(const sockaddr* address, char* host, unsigned int hostSize,
                                    char* service, unsigned int serviceSize, int flags);

/// Empties a set.
ZEL_EXPORT void fds_zero(fd_set* set);

/// Puts `socket` into a set. A set has no place for sockets from FD_SETSIZE on: it then stays as
/// it is, and fds_select serves the socket all the same.
ZEL_EXPORT void fds_set(unsigned int socket, fd_set* set);

/// Waits until `socket`, and no other, is ready in one of the ways that the non-null sets stand
/// for, whatever they hold. Gives the number of sets in which it is ready, 0 when `wait` has
/// passed (null: never) and -1 on failure: EBADF for a socket that is not open, EINVAL for a wait
/// that is negative or has a million microseconds or more.
///
/// The sets are left as select leaves them: empty, but for the socket where it is ready; as they
/// were on failure. `wait` is never changed. Sockets of any number work.
///
/// The end of the stream, a hang-up and a pending error count as readable, a pending error also as
/// writable, urgent data as exceptional.
ZEL_EXPORT int fds_select(unsigned int socket, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet,
                          const timeval* wait);

#endif
