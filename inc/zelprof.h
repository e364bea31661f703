// SPDX-License-Identifier: MIT
//
// A wall-clock profiler for a program's own code.
//
// A ProfileEntry names a piece of work and adds up its calls and seconds. A ProfilePoint on the
// stack inside that work charges the time of its scope to the entry. Scopes nest, and each moment
// is charged to the innermost one only: an outer entry shows the time spent in its own code.
//
//     static ProfileEntry parsing("parsing");
//     void Parse() {
//         ProfilePoint point(&parsing);
//         ...
//     }
//
// The points are for one thread at a time: the innermost point is one for the whole process and
// has no lock. Scopes that run on two threads at once mix up their clocks.
#ifndef PLINTH_ZELPROF_H
#define PLINTH_ZELPROF_H

#include "dsstring.h"
#include "outside/varnholt/time.h"
#include "outside/zelexport.h"

/// The time of its own making.
class ZEL_EXPORT zelTimeMill : public zelTimeval {
public:
    zelTimeMill() { GetTimeOfDay(); }

    operator double() const { return ToDouble(); } ///< seconds since 1970
};

/// A piece of work. It serves any number of points, one after the other or nested, and prints
/// its line to std::cout when it is destroyed, in the stream's current number format:
///
///     parsing: 3 times * 0.5 sec = 1.5 sec total
///
/// With no completed scope the average is not a number.
class ZEL_EXPORT ProfileEntry {
public:
    /// The name is copied.
    explicit ProfileEntry(char const* name);
    ProfileEntry(const ProfileEntry&) = delete;
    ProfileEntry& operator=(const ProfileEntry&) = delete;
    ~ProfileEntry();

private:
    friend class ProfilePoint;

    dsString name;
    unsigned int calls; ///< completed scopes
    double total;       ///< seconds charged
};

/// A scope of work, for the stack. It costs little more than its two looks at the clock.
///
/// Requires: points end in the reverse order of their making, and the entry outlives them.
class ZEL_EXPORT ProfilePoint {
public:
    /// Begins a scope of `charged`.
    explicit ProfilePoint(ProfileEntry* charged)
        : previous(currentPoint), entry(charged), start(zelTimeval::Now()) {
        if (previous != nullptr) {
            previous->entry->total += start - previous->start;
            previous->start = 0.0;
        }
        currentPoint = this;
    }
    ProfilePoint(const ProfilePoint&) = delete;
    ProfilePoint& operator=(const ProfilePoint&) = delete;
    ~ProfilePoint() {
        const double now = zelTimeval::Now();
        entry->total += now - start;
        ++entry->calls;
        start = 0.0;
        if (previous != nullptr)
            previous->start = now;
        currentPoint = previous;
    }

private:
    static ProfilePoint* currentPoint; ///< the innermost live point

    ProfilePoint* previous;
    ProfileEntry* entry;
    double start; ///< since when the running stretch counts; 0.0 while a nested point runs
};

#endif
