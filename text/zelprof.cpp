// SPDX-License-Identifier: MIT
#include "zelprof.h"

#include <iostream>

ProfilePoint* ProfilePoint::currentPoint = nullptr;

namespace {
double Now() {
    zelTimeval now;
    now.GetTimeOfDay();
    return now.ToDouble();
}
} // namespace

ProfileEntry::ProfileEntry(char const* label) : name(label), calls(0), total(0.0) {}

ProfileEntry::~ProfileEntry() {
    std::cout << name << ": " << calls << " times * " << total / static_cast<double>(calls)
              << " sec = " << total << " sec total" << std::endl;
}

ProfilePoint::ProfilePoint(ProfileEntry* charged)
    : previous(currentPoint), entry(charged), start(Now()) {
    if (previous != nullptr) {
        previous->entry->total += start - previous->start;
        previous->start = 0.0;
    }
    currentPoint = this;
}

ProfilePoint::~ProfilePoint() {
    const double now = Now();
    entry->total += now - start;
    ++entry->calls;
    start = 0.0;
    if (previous != nullptr)
        previous->start = now;
    currentPoint = previous;
}
