// SPDX-License-Identifier: MIT
#ifndef PLINTH_EXAMPLES_TERMINAL_H
#define PLINTH_EXAMPLES_TERMINAL_H

#include <cstdlib>
#include <string_view>

#include <unistd.h>

/// Whether a descriptor leads to a terminal on which lines can be replaced and coloured.
inline bool IsTerminal(int descriptor) {
    const char* const kind = std::getenv("TERM");
    return isatty(descriptor) == 1 && kind != nullptr && std::string_view(kind) != "dumb";
}

#endif
