// SPDX-License-Identifier: MIT
//
// Staying in memory where the library, or what it is a part of, was loaded with dlopen.
#ifndef PLINTH_POSIX_KEEPLOADED_H
#define PLINTH_POSIX_KEEPLOADED_H

namespace posix {

/// Keeps this code from being unloaded, for good: a signal handler or a thread is about to be made
/// that nobody waits for. May be called again, by any thread.
void KeepLoaded();

} // namespace posix

#endif
