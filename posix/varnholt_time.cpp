// SPDX-License-Identifier: MIT
#include "outside/varnholt/time.h"

#include <climits>

#include "posix/syscalls.h"

namespace {
constexpr long perSecond = 1000000;
}

zelTimeval::zelTimeval(long wholeSeconds, long moreMicroseconds)
    : seconds(wholeSeconds), microseconds(moreMicroseconds) {
    Normalize();
}

void zelTimeval::Normalize() {
    if (microseconds >= 0 && microseconds < perSecond)
        return;
    long carry = microseconds / perSecond;
    microseconds %= perSecond;
    if (microseconds < 0) {
        microseconds += perSecond;
        --carry;
    }
    if (__builtin_add_overflow(seconds, carry, &seconds))
        seconds = carry < 0 ? LONG_MIN : LONG_MAX;
}

void zelTimeval::GetTimeOfDay() {
    timespec now{};
    sys::clock_gettime(CLOCK_REALTIME, &now);
    seconds = static_cast<long>(now.tv_sec);
    microseconds = now.tv_nsec / 1000;
}
