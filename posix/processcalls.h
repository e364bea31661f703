// SPDX-License-Identifier: MIT
//
// The system calls of child processes: see syscalls.h.
#ifndef PLINTH_POSIX_PROCESSCALLS_H
#define PLINTH_POSIX_PROCESSCALLS_H

#include <csignal>

#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include "posix/syscalls.h"

namespace sys {

inline int kill(pid_t id, int signal) {
    return called(__func__, [=] { return ::kill(id, signal); });
}
inline int pidfd_open(pid_t id) {
    return called(__func__, [=] { return static_cast<int>(::syscall(SYS_pidfd_open, id, 0)); });
}
inline int pidfd_send_signal(int fd, int signal) {
    return called(__func__, [=] {
        return static_cast<int>(::syscall(SYS_pidfd_send_signal, fd, signal, nullptr, 0));
    });
}
inline int posix_spawnp(pid_t* id, const char* program, const posix_spawn_file_actions_t* actions,
                        const posix_spawnattr_t* attributes, char* const* words,
                        char* const* environment) {
    return numbered(__func__, [=] {
        return ::posix_spawnp(id, program, actions, attributes, words, environment);
    });
}
inline int waitid(idtype_t kind, id_t id, siginfo_t* info, int options) {
    return called(__func__, [=] { return ::waitid(kind, id, info, options); });
}

} // namespace sys

#endif
