// SPDX-License-Identifier: MIT
#ifndef PLINTH_SWEEP_COMPLETE_H
#define PLINTH_SWEEP_COMPLETE_H

#include <cstdio>
#include <span>

#include "sweep.h"

namespace sweep {

/// Compares the scenarios with a list of demangled symbols, one a line: 0 if each operation has a
/// scenario and each pattern an operation. Destructors need none: each scenario runs its own.
int Uncovered(std::span<const Family* const> families, const char* list, std::FILE* report);

} // namespace sweep

#endif
