// SPDX-License-Identifier: MIT
//
// The record of a found file, and what a lock on a file needs beside its opening.
#ifndef PLINTH_WIN32_FILES_H
#define PLINTH_WIN32_FILES_H

#include "outside/zelexport.h"

/// An entry of a directory: its name alone, with room for all that a path can hold.
struct WIN32_FIND_DATAA {
    char cFileName[1024]; ///< with its NUL
};

/// Keeps an opening made by uCreateFile out of the processes that fork makes of this one, until
/// UnlockFile, so that none of them holds what it excludes: there its descriptor is closed, and the
/// handle must not be used. A fork made around the C library still copies it. False if memory has
/// run out.
[[nodiscard]] ZEL_EXPORT bool LockFile(void* handle);
/// Ends that, and what the opening excludes, for every copy of it. It stays open. The result is of
/// no interest.
ZEL_EXPORT bool UnlockFile(void* handle);

/// The calling process, as no other one that lives is numbered.
ZEL_EXPORT unsigned int GetCurrentProcessId();

/// Waits that many milliseconds. No signal ends it.
ZEL_EXPORT void Sleep(unsigned int milliseconds);

#endif
