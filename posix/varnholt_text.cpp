// SPDX-License-Identifier: MIT
#include "outside/varnholt/text.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

int Strlen(const char* text) {
    if (text == nullptr)
        return 0;
    // A text that an int cannot count is cut short rather than given a negative length.
    return static_cast<int>(std::min(std::strlen(text), static_cast<std::size_t>(INT_MAX)));
}

bool Getenv(const char* name, const char** value) {
    const char* found = std::getenv(name);
    if (found == nullptr)
        return false;
    *value = found;
    return true;
}
