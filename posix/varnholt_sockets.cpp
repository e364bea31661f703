// SPDX-License-Identifier: MIT
#include "outside/varnholt/sockets.h"

#include <charconv>
#include <cstring>
#include <string_view>

#include <netdb.h>
#include <netinet/in.h>

#include "outside/quillmarsh/sockets.h"
#include "posix/polling.h"
#include "posix/syscalls.h"

namespace {

bool IsPort(std::string_view service) {
    int port = -1;
    const char* end = service.data() + service.size();
    const auto [stop, failure] = std::from_chars(service.data(), end, port);
    return failure == std::errc() && stop == end && port >= 0 && port <= 65535;
}

/// The resolver's code as a system error.
int ErrnoOf(int code) {
    switch (code) {
    case EAI_SYSTEM:
        return errno;
    case EAI_MEMORY:
        return ENOMEM;
    case EAI_FAMILY:
    case EAI_ADDRFAMILY:
        return EAFNOSUPPORT;
    case EAI_BADFLAGS:
    case EAI_SERVICE:
    case EAI_SOCKTYPE:
    case EAI_OVERFLOW:
        return EINVAL;
    default: // a name that is unknown, or that nobody can resolve now
        return EADDRNOTAVAIL;
    }
}

/// What a resolver call gave, with errno telling the cause of a failure and of nothing else.
template <typename Call>
int Resolved(Call call) {
    const int before = errno;
    int code = call();
    while (code == EAI_SYSTEM && errno == EINTR)
        code = call();
    errno = code == 0 ? before : ErrnoOf(code);
    return code;
}

/// False only where the host knows no IPv6 at all. A socket that cannot be made for another reason
/// will fail its maker with that reason.
bool HostHasIPv6() {
    const sys::KeepErrno keep;
    const int made = zel_socket(AF_INET6, SOCK_STREAM, 0);
    if (made < 0)
        return errno != EAFNOSUPPORT;
    zel_closesocket(made);
    return true;
}

bool IsLoopbackIPv4(const addrinfo& entry) {
    if (entry.ai_family != AF_INET)
        return false;
    sockaddr_in address;
    std::memcpy(&address, entry.ai_addr, sizeof address);
    return ntohl(address.sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
}

/// Moves the entries that `goesFirst` chooses to the front; both halves keep their order.
template <typename Predicate>
addrinfo* Reordered(addrinfo* list, Predicate goesFirst) {
    addrinfo* first = nullptr;
    addrinfo* rest = nullptr;
    addrinfo** firstEnd = &first;
    addrinfo** restEnd = &rest;
    for (; list != nullptr; list = list->ai_next) {
        addrinfo**& end = goesFirst(*list) ? firstEnd : restEnd;
        *end = list;
        end = &list->ai_next;
    }
    *restEnd = nullptr;
    *firstEnd = rest;
    return first;
}

} // namespace

int zel_get_nodeaddrinfo(const char* node, const char* service, const addrinfo* hints,
                         addrinfo** list) {
    *list = nullptr;
    if (service != nullptr && !IsPort(service)) {
        errno = EINVAL;
        return EAI_SERVICE;
    }
    const int code = Resolved([=] { return ::getaddrinfo(node, service, hints, list); });
    if (code != 0)
        return code;
    if (node == nullptr && hints != nullptr && (hints->ai_flags & AI_PASSIVE) != 0) {
        const int preferred = HostHasIPv6() ? AF_INET6 : AF_INET;
        *list = Reordered(*list, [=](const addrinfo& e) { return e.ai_family == preferred; });
    } else {
        *list = Reordered(*list, IsLoopbackIPv4);
    }
    return 0;
}

void zel_free_nodeaddrinfo(addrinfo* list) {
    const sys::KeepErrno keep;
    // One by one: POSIX lets parts of a list be released, not a list in another order.
    while (list != nullptr) {
        addrinfo* next = list->ai_next;
        list->ai_next = nullptr;
        ::freeaddrinfo(list);
        list = next;
    }
}

int zel_get_nodenameinfo(const sockaddr* address, char* host, unsigned int hostSize, char* service,
                         unsigned int serviceSize, int flags) {
    sockaddr_in6 wide;
    sockaddr_in narrow{};
    socklen_t length = sizeof narrow;
    if (address->sa_family == AF_INET6) {
        length = sizeof wide;
        std::memcpy(&wide, address, sizeof wide);
        if (IN6_IS_ADDR_V4MAPPED(&wide.sin6_addr)) {
            narrow.sin_family = AF_INET;
            narrow.sin_port = wide.sin6_port;
            std::memcpy(&narrow.sin_addr, wide.sin6_addr.s6_addr + 12, sizeof narrow.sin_addr);
            address = reinterpret_cast<const sockaddr*>(&narrow);
            length = sizeof narrow;
        }
    }
    return Resolved([=] {
        return ::getnameinfo(address, length, host, hostSize, service, serviceSize, flags);
    });
}

void fds_zero(fd_set* set) {
    FD_ZERO(set);
}

void fds_set(unsigned int socket, fd_set* set) {
    if (socket < FD_SETSIZE)
        FD_SET(static_cast<int>(socket), set);
}

int fds_select(unsigned int socket, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet,
               const timeval* wait) {
    if (wait != nullptr && (wait->tv_sec < 0 || wait->tv_usec < 0 || wait->tv_usec >= 1000000)) {
        errno = EINVAL;
        return -1;
    }
    pollfd entry{static_cast<int>(socket), 0, 0};
    if (entry.fd < 0) { // poll would take it for an entry to skip
        errno = EBADF;
        return -1;
    }
    struct Kind {
        fd_set* set;
        short interest;
        short ready; ///< poll reports hang-ups and errors unasked; not to every kind they matter
    };
    const Kind kinds[] = {{readSet, POLLIN, POLLIN | POLLHUP | POLLERR},
                          {writeSet, POLLOUT, POLLOUT | POLLERR},
                          {exceptSet, POLLPRI, POLLPRI}};
    short counts = 0;
    for (const Kind& kind : kinds) {
        if (kind.set != nullptr) {
            entry.events = static_cast<short>(entry.events | kind.interest);
            counts = static_cast<short>(counts | kind.ready);
        }
    }

    constexpr time_t longest = 1000000000; // beyond 30 years a wait is for ever
    const posix::Deadline deadline =
        wait == nullptr || wait->tv_sec > longest
            ? posix::Deadline::Never()
            : posix::Deadline::In(std::chrono::seconds(wait->tv_sec) +
                                  std::chrono::microseconds(wait->tv_usec));
    int ready = posix::PollUntil(&entry, 1, deadline);
    if (ready > 0 && (entry.revents & POLLNVAL) != 0) {
        errno = EBADF;
        return -1;
    }
    if (ready > 0 && (entry.revents & counts) == 0) {
        // A hang-up that is none of the caller's business stays: looking again would spin.
        pollfd nothing{-1, 0, 0};
        ready = posix::PollUntil(&nothing, 1, deadline);
    }
    if (ready < 0)
        return -1;
    int sets = 0;
    for (const Kind& kind : kinds) {
        if (kind.set == nullptr)
            continue;
        FD_ZERO(kind.set);
        if (ready > 0 && (entry.revents & kind.ready) != 0) {
            fds_set(socket, kind.set);
            ++sets;
        }
    }
    return sets;
}
