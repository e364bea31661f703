// SPDX-License-Identifier: MIT
#include "zelprof.h"

#include <iostream>

ProfilePoint* ProfilePoint::currentPoint = nullptr;

ProfileEntry::ProfileEntry(char const* label) : name(label), calls(0), total(0.0) {}

ProfileEntry::~ProfileEntry() {
    std::cout << name << ": " << calls << " times * " << total / static_cast<double>(calls)
              << " sec = " << total << " sec total" << std::endl;
}
