// SPDX-License-Identifier: MIT
//
// Whether a thread may be stopped where it was interrupted.
//
// A thread that is stopped inside the allocator or the C library takes their locks along, and the
// whole process hangs at the next allocation or fork. So its place is looked at: the code of
// these modules is out of bounds, but for a system call that the signal has interrupted.
#ifndef PLINTH_POSIX_CODEGUARD_H
#define PLINTH_POSIX_CODEGUARD_H

#include <csignal>

namespace posix {

/// Learns where the guarded modules lie: the loader, the C library and whoever allocates. May be
/// called again, by any thread.
void LearnGuardedCode();

/// True if `context`, which a signal handler got, was interrupted in guarded code. For signal
/// handlers; always false on a processor that this file knows nothing of.
bool IsInGuardedCode(const void* context);

/// True if `context` runs with another signal mask than `usual`, as a signal handler does that
/// has interrupted who knows what. A thread that was asleep in a system call is taken for one that
/// has set its own mask: handlers hardly sleep.
bool IsInHandler(const void* context, const sigset_t& usual);

} // namespace posix

#endif
