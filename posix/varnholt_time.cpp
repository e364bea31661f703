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

double zelTimeval::Now() {
    timespec now;
    sys::clock_gettime(CLOCK_REALTIME, &now);
    // A division would take longer than all else here. Its result and the product's differ by
    // less than 1e-16, and no sum with the seconds of today is that near to a tie between two
    // doubles: those lie at odd multiples of 2^-23, from which a whole number of microseconds is
    // 7e-12 away at the least. So the sum is the same.
    constexpr double perMicrosecond = 1e-6;
    const unsigned int microseconds = static_cast<unsigned int>(now.tv_nsec) / 1000;
    return static_cast<double>(static_cast<int>(microseconds)) * perMicrosecond +
           static_cast<double>(now.tv_sec);
}
