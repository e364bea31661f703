// SPDX-License-Identifier: MIT
//
// Starting a program in a child process.
#ifndef PLINTH_POSIX_SPAWN_H
#define PLINTH_POSIX_SPAWN_H

#include <sys/types.h>

namespace posix {

/// Starts words[0], looked up on PATH, with `standard` as its descriptors 0, 1 and 2 (-1: as they
/// are here) and no other. Gives 0 and the id, or the reason why the program cannot be executed;
/// there is no child then. The parent's memory is not copied, however much that is.
[[nodiscard]] int Spawn(pid_t* id, char* const* words, const int (&standard)[3], bool ownSession);

} // namespace posix

#endif
