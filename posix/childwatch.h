// SPDX-License-Identifier: MIT
//
// Telling of a child's end where the system offers no descriptor for a process.
#ifndef PLINTH_POSIX_CHILDWATCH_H
#define PLINTH_POSIX_CHILDWATCH_H

#include <memory>

#include <sys/types.h>

namespace posix {

/// The number of a descriptor that is closed with the last holder; -1 is none.
using SharedDescriptor = std::shared_ptr<int>;

SharedDescriptor NoDescriptor();

/// A descriptor that is readable and stays so.
SharedDescriptor SignaledDescriptor();

/// A descriptor that becomes readable when the child ends, or none. It costs a thread until then,
/// which takes no signals, keeps what it writes to open, and collects nothing.
SharedDescriptor WatchChild(pid_t id);

} // namespace posix

#endif
