// SPDX-License-Identifier: MIT
//
// The fatal report: what happens when a caller has broken a rule that cannot be answered with a
// result, like asking an array to find by key.
#ifndef PLINTH_QUILLMARSH_ABORT_H
#define PLINTH_QUILLMARSH_ABORT_H

#include "outside/zelexport.h"

/// Receives a fatal report in place of the default. It may end the process, throw, or return;
/// when it returns, the reporting operation goes on as its description says.
using zelAbortHandler = void (*)(const char* message, const char* sourceFile, int line);

/// Reports a broken invariant: writes "message (source file:line)" to standard error and aborts
/// the process, unless a handler is set, which is then called instead. `message` may be null.
ZEL_EXPORT void zelAbort(const char* message, const char* sourceFile, int line);

/// Sets the handler for all threads and returns the one before; null is the default report.
ZEL_EXPORT zelAbortHandler zelSetAbortHandler(zelAbortHandler handler);

#endif
