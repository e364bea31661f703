// SPDX-License-Identifier: MIT
//
// What poll is asked for on behalf of an event, and which of its answers make the event fire. epoll
// has the same numbers.
#ifndef PLINTH_POSIX_READINESS_H
#define PLINTH_POSIX_READINESS_H

#include <poll.h>

#include "outside/varnholt/events.h"

namespace posix {

inline short InterestOf(zelBaseEvent::Readiness readiness) {
    switch (readiness) {
    case zelBaseEvent::Writable:
        return POLLOUT;
    case zelBaseEvent::Exceptional:
        return POLLPRI;
    case zelBaseEvent::Readable:
        break;
    }
    return POLLIN;
}

/// Whether what poll reports is what was waited for: poll reports hang-ups and errors to
/// everybody, also to those who asked for neither.
inline bool HasFired(const pollfd& entry) {
    short wanted = entry.events;
    if (entry.events & POLLIN)
        wanted |= POLLHUP | POLLERR;
    if (entry.events & POLLOUT)
        wanted |= POLLERR;
    return (entry.revents & wanted) != 0;
}

} // namespace posix

#endif
