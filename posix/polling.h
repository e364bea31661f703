// SPDX-License-Identifier: MIT
//
// Waiting that signals cannot cut short: a point in time on the monotonic clock, and a poll that
// goes on with the remaining time.
#ifndef PLINTH_POSIX_POLLING_H
#define PLINTH_POSIX_POLLING_H

#include <chrono>
#include <optional>

#include <poll.h>

namespace posix {

class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    static Deadline Never() { return Deadline(); }
    static Deadline In(std::chrono::nanoseconds wait);
    /// `msec` milliseconds from now; any negative number is never.
    static Deadline InMilliseconds(int msec);

    /// What is left, 0 once it has passed; nothing for a deadline that never comes.
    [[nodiscard]] std::optional<std::chrono::nanoseconds> Left() const;
    [[nodiscard]] bool IsNever() const { return !when; }
    [[nodiscard]] bool HasPassed() const { return Left() == std::chrono::nanoseconds::zero(); }

private:
    std::optional<Clock::time_point> when;
};

/// poll until something is ready or the deadline has passed. The result is poll's, but it is
/// never -1 with EINTR. At least one look is taken, also after the deadline. Several entries of one
/// descriptor count as one against the limit on descriptors.
int PollUntil(pollfd* set, nfds_t count, const Deadline& deadline);

} // namespace posix

#endif
