// SPDX-License-Identifier: MIT
#include "posix/polling.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include "posix/syscalls.h"

namespace posix {

using std::chrono::nanoseconds;
using std::chrono::seconds;

Deadline Deadline::In(nanoseconds wait) {
    Deadline deadline;
    const Clock::time_point now = Clock::now();
    // A wait beyond the end of the clock never ends.
    if (wait < Clock::time_point::max() - now)
        deadline.when = now + wait;
    return deadline;
}

Deadline Deadline::InMilliseconds(int msec) {
    return msec < 0 ? Never() : In(std::chrono::milliseconds(msec));
}

std::optional<nanoseconds> Deadline::Left() const {
    if (!when)
        return std::nullopt;
    return std::max(nanoseconds::zero(), nanoseconds(*when - Clock::now()));
}

namespace {

[[gnu::always_inline]] inline int Poll(pollfd* set, nfds_t count, const Deadline& deadline) {
    return sys::retry([&] {
        const std::optional<nanoseconds> left = deadline.Left();
        if (!left)
            return sys::ppoll(set, count, nullptr);
        const seconds whole = std::chrono::duration_cast<seconds>(*left);
        const timespec wait{static_cast<time_t>(whole.count()),
                            static_cast<long>((*left - whole).count())};
        return sys::ppoll(set, count, &wait);
    });
}

/// For more entries than the process may have descriptors, which the system refuses: those of the
/// same descriptor are polled as one.
[[gnu::noinline]] int PollMerged(pollfd* set, nfds_t count, const Deadline& deadline) {
    const auto before = [](const pollfd& one, const pollfd& other) { return one.fd < other.fd; };
    std::vector<pollfd> merged(set, set + count);
    std::sort(merged.begin(), merged.end(), before);
    auto last = merged.begin();
    for (const pollfd& entry : merged)
        if (entry.fd == last->fd)
            last->events = static_cast<short>(last->events | entry.events);
        else
            *++last = entry;
    merged.erase(last + 1, merged.end());
    int ready = Poll(merged.data(), merged.size(), deadline);
    if (ready <= 0)
        return ready;
    ready = 0;
    for (pollfd* entry = set; entry != set + count; ++entry) {
        const pollfd& seen = *std::lower_bound(merged.begin(), merged.end(), *entry, before);
        const int asked = entry->events | POLLERR | POLLHUP | POLLNVAL;
        entry->revents = static_cast<short>(seen.revents & asked);
        ready += entry->revents != 0;
    }
    return ready;
}

} // namespace

int PollUntil(pollfd* set, nfds_t count, const Deadline& deadline) {
    const int ready = Poll(set, count, deadline);
    return ready < 0 && errno == EINVAL && count > 1 ? PollMerged(set, count, deadline) : ready;
}

} // namespace posix
