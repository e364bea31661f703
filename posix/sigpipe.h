// SPDX-License-Identifier: MIT
//
// Writing to a pipe without the signal that a broken one raises.
#ifndef PLINTH_POSIX_SIGPIPE_H
#define PLINTH_POSIX_SIGPIPE_H

#include <cstddef>

#include <sys/types.h>

namespace posix {

/// write, retried when interrupted. A broken pipe is -1 with EPIPE and nothing else: SIGPIPE is
/// blocked for this thread meanwhile and taken away if this call raised it. What the host had
/// pending, for this thread or for the process, stays so, and the mask is put back as it was.
ssize_t WriteWithoutSignal(int descriptor, const void* data, size_t size);

} // namespace posix

#endif
