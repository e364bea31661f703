// SPDX-License-Identifier: MIT
#ifndef PLINTH_COSTS_CALLNAMES_H
#define PLINTH_COSTS_CALLNAMES_H

#include <algorithm>
#include <iterator>
#include <string>

#include <sys/syscall.h>

namespace costs {

struct CallName {
    long call;
    const char* name;
};

inline const CallName callNames[] = {
    {SYS_accept4, "accept4"},
    {SYS_access, "access"},
    {SYS_bind, "bind"},
    {SYS_brk, "brk"},
    {SYS_clone, "clone"},
    {SYS_clone3, "clone3"},
    {SYS_close, "close"},
    {SYS_close_range, "close_range"},
    {SYS_connect, "connect"},
    {SYS_copy_file_range, "copy_file_range"},
    {SYS_dup2, "dup2"},
    {SYS_epoll_create1, "epoll_create1"},
    {SYS_epoll_ctl, "epoll_ctl"},
    {SYS_epoll_wait, "epoll_wait"},
    {SYS_eventfd2, "eventfd2"},
    {SYS_execve, "execve"},
    {SYS_exit, "exit"},
    {SYS_exit_group, "exit_group"},
    {SYS_fadvise64, "fadvise64"},
    {SYS_fcntl, "fcntl"},
    {SYS_flock, "flock"},
    {SYS_fstat, "fstat"},
    {SYS_ftruncate, "ftruncate"},
    {SYS_futex, "futex"},
    {SYS_getcwd, "getcwd"},
    {SYS_getdents64, "getdents64"},
    {SYS_getpeername, "getpeername"},
    {SYS_getpid, "getpid"},
    {SYS_getsockname, "getsockname"},
    {SYS_getsockopt, "getsockopt"},
    {SYS_gettid, "gettid"},
    {SYS_ioctl, "ioctl"},
    {SYS_listen, "listen"},
    {SYS_lseek, "lseek"},
    {SYS_madvise, "madvise"},
    {SYS_mkdir, "mkdir"},
    {SYS_mmap, "mmap"},
    {SYS_mprotect, "mprotect"},
    {SYS_mremap, "mremap"},
    {SYS_munmap, "munmap"},
    {SYS_newfstatat, "newfstatat"},
    {SYS_open, "open"},
    {SYS_openat, "openat"},
    {SYS_pidfd_open, "pidfd_open"},
    {SYS_pidfd_send_signal, "pidfd_send_signal"},
    {SYS_pipe2, "pipe2"},
    {SYS_poll, "poll"},
    {SYS_ppoll, "ppoll"},
    {SYS_pread64, "pread64"},
    {SYS_prlimit64, "prlimit64"},
    {SYS_pselect6, "pselect6"},
    {SYS_read, "read"},
    {SYS_readlink, "readlink"},
    {SYS_readv, "readv"},
    {SYS_recvfrom, "recvfrom"},
    {SYS_recvmsg, "recvmsg"},
    {SYS_rename, "rename"},
    {SYS_renameat2, "renameat2"},
    {SYS_rmdir, "rmdir"},
    {SYS_rseq, "rseq"},
    {SYS_rt_sigaction, "rt_sigaction"},
    {SYS_rt_sigpending, "rt_sigpending"},
    {SYS_rt_sigprocmask, "rt_sigprocmask"},
    {SYS_rt_sigtimedwait, "rt_sigtimedwait"},
    {SYS_sched_yield, "sched_yield"},
    {SYS_sendmsg, "sendmsg"},
    {SYS_sendto, "sendto"},
    {SYS_set_robust_list, "set_robust_list"},
    {SYS_setsid, "setsid"},
    {SYS_setsockopt, "setsockopt"},
    {SYS_sigaltstack, "sigaltstack"},
    {SYS_socket, "socket"},
    {SYS_stat, "stat"},
    {SYS_statfs, "statfs"},
    {SYS_unlink, "unlink"},
    {SYS_unlinkat, "unlinkat"},
    {SYS_wait4, "wait4"},
    {SYS_waitid, "waitid"},
    {SYS_write, "write"},
    {SYS_writev, "writev"},
};

inline std::string NameOf(long call) {
    const auto found = std::find_if(std::begin(callNames), std::end(callNames),
                                    [call](const CallName& one) { return one.call == call; });
    return found != std::end(callNames) ? found->name : "number " + std::to_string(call);
}

} // namespace costs

#endif
