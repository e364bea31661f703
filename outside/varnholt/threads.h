// SPDX-License-Identifier: MIT
//
// One function on a thread of its own, and its result. Any thread may call these.
#ifndef PLINTH_VARNHOLT_THREADS_H
#define PLINTH_VARNHOLT_THREADS_H

#include "outside/zelexport.h"

/// Runs `function(argument)` on a new thread. The result is a record, which zelMOEvent can watch;
/// the word -1 on failure, with the last error set.
/// Requires: `notify` is null.
[[nodiscard]] ZEL_EXPORT void* StrictThread_Launch(int (*function)(void*), void* argument,
                                                   void (*notify)(void*, bool));

/// True once the function has returned; `*code` is its result then, and untouched before.
[[nodiscard]] ZEL_EXPORT bool StrictThread_GetExitCode(void* thread, int* code);

/// Gives the record up. One whose function still runs goes when that has returned.
ZEL_EXPORT void StrictThread_Free(void* thread);

#endif
