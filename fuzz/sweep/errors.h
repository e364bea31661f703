// SPDX-License-Identifier: MIT
//
// What each system call can fail with.
#ifndef PLINTH_SWEEP_ERRORS_H
#define PLINTH_SWEEP_ERRORS_H

#include <cerrno>
#include <string_view>
#include <vector>

#include "posix/faultplan.h"

namespace sweep {

using sys::Fault;

/// What calls can fail with: a handful from the manual pages, no answer that denies what the
/// scenario has made (a missing file that is there).
struct Failing {
    std::string_view call;
    std::vector<int> errors;
};
inline const Failing failing[] = {
    {"accept4", {EINTR, ECONNABORTED, EMFILE, ENOMEM}},
    {"bind", {EADDRINUSE, EACCES}},
    {"chdir", {EACCES, EIO}},
    {"close", {EINTR, EIO}},
    {"connect", {EINTR, ECONNREFUSED, ETIMEDOUT, ENETUNREACH}},
    {"copy_file_range", {EINTR, EIO, ENOSPC}},
    {"eventfd", {EMFILE, ENOMEM}},
    {"eventfd_write", {}}, // as it is used
    {"fchmod", {EPERM, EROFS}},
    {"fchown", {EPERM, EIO}},
    {"fcntl", {EMFILE}},
    {"flock", {EINTR, EWOULDBLOCK, ENOLCK}},
    {"fstat", {ENOMEM, EIO}},
    {"fstatat", {EACCES, ENOMEM}},
    {"ftruncate", {EIO, EFBIG}},
    {"futex", {EINTR, EAGAIN}},
    {"futimens", {EPERM, EROFS}},
    {"getcwd", {ENOENT, ENOMEM}},
    {"getdents64", {EIO}},
    {"gethostname", {ENAMETOOLONG}},
    {"getpeername", {ENOTCONN, ENOBUFS}},
    {"getpwuid_r", {EINTR, EIO, EMFILE, ERANGE}},
    {"getsockname", {ENOBUFS}},
    {"getsockopt", {ENOBUFS}},
    {"ioctl", {EINVAL}},
    {"kill", {EPERM}},
    {"listen", {EADDRINUSE}},
    {"lseek", {EIO}},
    {"lstat", {EACCES, ENOMEM}},
    {"mkdir", {EACCES, ENOSPC, EROFS}},
    {"mkdtemp", {EACCES, ENOSPC}},
    {"open", {EINTR, EACCES, EMFILE, ENOSPC, EIO}},
    {"openat", {EINTR, EACCES, EMFILE}},
    {"pidfd_open", {ENOSYS, EMFILE, ENOMEM}},
    {"pidfd_send_signal", {EPERM, ENOSYS}},
    {"epoll_create1", {EMFILE, ENOMEM}},
    {"epoll_ctl", {ENOMEM, ENOSPC}},
    {"epoll_wait", {EINTR, Fault::nothingToDo}},
    {"pipe2", {EMFILE, ENFILE}},
    {"posix_fadvise", {EINVAL}},
    {"posix_spawnp", {EAGAIN, ENOMEM, ENOENT, EACCES}},
    {"ppoll", {EINTR, ENOMEM, Fault::nothingToDo}},
    {"pthread_create", {EAGAIN}},
    {"pthread_sigqueue", {EAGAIN}},
    {"read", {EINTR, EIO}},
    {"readlink", {EACCES, EIO}},
    {"recv", {EINTR, ECONNRESET, ETIMEDOUT}},
    {"rename", {EACCES, EBUSY, ENOSPC}},
    {"rmdir", {EACCES, EBUSY}},
    {"send", {EINTR, EPIPE, ECONNRESET}},
    {"sendmsg", {EINTR, EPIPE, ECONNRESET}},
    {"setsockopt", {ENOPROTOOPT, ENOMEM}},
    {"sigtimedwait", {EINTR}},
    {"socket", {EMFILE, EAFNOSUPPORT, ENOBUFS}},
    {"stat", {EACCES, ENOMEM}},
    {"statvfs", {EIO, ENOSYS}},
    {"symlink", {EACCES, ENOSPC}},
    {"tgkill", {EAGAIN}},
    {"timer_create", {EAGAIN, ENOMEM}},
    {"timer_settime", {EINVAL}},
    {"unlink", {EACCES, EBUSY, EROFS}},
    {"unlinkat", {EACCES, EBUSY}},
    {"waitid", {EINTR}},
    {"write", {EINTR, ENOSPC, EIO, EPIPE}},
};

} // namespace sweep

#endif
