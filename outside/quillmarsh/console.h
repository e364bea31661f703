// SPDX-License-Identifier: MIT
//
// The console and the environment.
#ifndef PLINTH_QUILLMARSH_CONSOLE_H
#define PLINTH_QUILLMARSH_CONSOLE_H

#include "outside/zelexport.h"

/// Prints diagnostic text to standard output at once, in the grammar of printf. The result, as
/// printf's, is of no interest to the library.
ZEL_EXPORT int zel_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// The value of an environment variable, or null. The text belongs to the environment: read it
/// before anybody changes the variable.
ZEL_EXPORT const char* zel_getenv(const char* name);

#endif
