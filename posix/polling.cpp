// SPDX-License-Identifier: MIT
#include "posix/polling.h"

#include <algorithm>

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

int PollUntil(pollfd* set, nfds_t count, const Deadline& deadline) {
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

} // namespace posix
