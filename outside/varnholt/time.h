// SPDX-License-Identifier: MIT
//
// The time of day as two numbers.
#ifndef PLINTH_VARNHOLT_TIME_H
#define PLINTH_VARNHOLT_TIME_H

#include "outside/zelexport.h"

/// A span, or a point in time counted from 1970-01-01 00:00 UTC. A plain value.
class ZEL_EXPORT zelTimeval {
public:
    zelTimeval() : seconds(0), microseconds(0) {}
    /// Any two numbers; they are normalised.
    zelTimeval(long wholeSeconds, long moreMicroseconds);

    /// Carries whole seconds over, so that 0 <= microseconds < 1000000; the time stays the same.
    /// A number of seconds that a long cannot hold becomes the nearest one that it can.
    void Normalize();
    /// Takes the present time from the system's clock, which may be set while the program runs.
    void GetTimeOfDay();

    /// What ToDouble gives right after GetTimeOfDay, at the price of a look at the clock.
    static double Now();

    /// The seconds with their fraction.
    double ToDouble() const {
        return static_cast<double>(microseconds) / 1000000.0 + static_cast<double>(seconds);
    }

    long seconds;      ///< since 1970, or of the span
    long microseconds; ///< from 0 up to 999999 when normalised
};

#endif
