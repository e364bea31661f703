// SPDX-License-Identifier: MIT
//
// Raw transfer on a descriptor's handle. No signal interrupts a transfer, and none is raised by
// one: writing to a pipe that nobody reads any more is a failed write.
//
// All give false on failure with the reason in GetLastError, and set their count on every path.
#ifndef PLINTH_WIN32_PIPES_H
#define PLINTH_WIN32_PIPES_H

#include "outside/zelexport.h"

/// Asks how many bytes wait in the pipe; never blocks. False with the error "broken pipe" when
/// none wait and none can come, because nobody holds the write end any more.
/// `buffer`, `size`, `read` and `left` are for looking at the bytes, which is not offered.
/// Requires: these are null or 0, and `available` is not null.
ZEL_EXPORT bool PeekNamedPipe(void* handle, void* buffer, unsigned int size, unsigned int* read,
                              unsigned int* available, unsigned int* left);

/// Reads at most `size` bytes, blocking until there is at least one; `*count` says how many. The
/// end of a file is success with a count of 0, the end of a pipe is the error "broken pipe".
/// Requires: `overlapped` is null.
ZEL_EXPORT bool ReadFile(void* handle, void* data, unsigned int size, unsigned int* count,
                         void* overlapped);

/// Writes all of `size` bytes, blocking as long as that takes. On failure `*count` says how many
/// went out before it.
/// Requires: `overlapped` is null.
ZEL_EXPORT bool WriteFile(void* handle, const void* data, unsigned int size, unsigned int* count,
                          void* overlapped);

#endif
