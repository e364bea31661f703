// SPDX-License-Identifier: MIT
//
// A few calls on files, in native paths. A failure leaves the system's error in place.
#ifndef PLINTH_QUILLMARSH_FILES_H
#define PLINTH_QUILLMARSH_FILES_H

#include "outside/zelexport.h"

/// Removes the name of a file or a link; a directory is refused. 0 is success, -1 failure.
[[nodiscard]] ZEL_EXPORT int zel_unlink(const char* path);

/// Makes `path` the current directory of the process, for all its threads. 0 is success, -1
/// failure.
[[nodiscard]] ZEL_EXPORT int zel_chdir(const char* path);

/// Close what uFindFirstFile and what uCreateFile gave; -1 is let pass. They leave the last error
/// alone, so that a caller can clean up before it reports.
ZEL_EXPORT bool win32FindClose(void* handle);
ZEL_EXPORT bool win32CloseFileHandle(void* handle);

#endif
