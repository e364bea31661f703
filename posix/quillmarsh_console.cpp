// SPDX-License-Identifier: MIT
#include "outside/quillmarsh/console.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

int zel_printf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int printed = std::vprintf(format, arguments);
    va_end(arguments);
    std::fflush(stdout); // a diagnostic that waits in a buffer is lost with the process
    return printed;
}

const char* zel_getenv(const char* name) {
    return std::getenv(name);
}
