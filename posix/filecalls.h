// SPDX-License-Identifier: MIT
//
// The calls on files, directories and names of the machine: the part of syscalls.h that nothing
// else needs.
#ifndef PLINTH_POSIX_FILECALLS_H
#define PLINTH_POSIX_FILECALLS_H

#include <cstdio>
#include <cstdlib>

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include "posix/syscalls.h"

namespace sys {

inline int open(const char* path, int flags, mode_t mode = 0) {
    return called(__func__, [=] { return ::open(path, flags, mode); });
}
inline int openat(int folder, const char* name, int flags) {
    return called(__func__, [=] { return ::openat(folder, name, flags); });
}
inline int flock(int fd, int operation) {
    return called(__func__, [=] { return ::flock(fd, operation); });
}
inline int ftruncate(int fd, off_t size) {
    return called(__func__, [=] { return ::ftruncate(fd, size); });
}
inline off_t lseek(int fd, off_t offset, int from) {
    return called(__func__, [=] { return ::lseek(fd, offset, from); });
}
inline int posix_fadvise(int fd, off_t start, off_t length, int advice) {
    return numbered(__func__, [=] { return ::posix_fadvise(fd, start, length, advice); });
}

inline ssize_t copy_file_range(int source, int target, size_t size) {
    return transfer(__func__, size, [=](size_t most) {
        return ::copy_file_range(source, nullptr, target, nullptr, most, 0);
    });
}

inline int stat(const char* path, struct stat* info) {
    return called(__func__, [=] { return ::stat(path, info); });
}
inline int lstat(const char* path, struct stat* info) {
    return called(__func__, [=] { return ::lstat(path, info); });
}
inline int fstatat(int folder, const char* name, struct stat* info, int flags) {
    return called(__func__, [=] { return ::fstatat(folder, name, info, flags); });
}
inline int statvfs(const char* path, struct statvfs* info) {
    return called(__func__, [=] { return ::statvfs(path, info); });
}

inline int fchmod(int fd, mode_t mode) {
    return called(__func__, [=] { return ::fchmod(fd, mode); });
}
inline int fchown(int fd, uid_t owner, gid_t group) {
    return called(__func__, [=] { return ::fchown(fd, owner, group); });
}
inline int futimens(int fd, const timespec* times) {
    return called(__func__, [=] { return ::futimens(fd, times); });
}

inline int mkdir(const char* path, mode_t mode) {
    return called(__func__, [=] { return ::mkdir(path, mode); });
}
inline char* mkdtemp(char* path) {
    return called(__func__, [=] { return ::mkdtemp(path); });
}
inline int rename(const char* from, const char* to) {
    return called(__func__, [=] { return ::rename(from, to); });
}
inline int rmdir(const char* path) {
    return called(__func__, [=] { return ::rmdir(path); });
}
inline int unlink(const char* path) {
    return called(__func__, [=] { return ::unlink(path); });
}
inline int unlinkat(int folder, const char* name, int flags) {
    return called(__func__, [=] { return ::unlinkat(folder, name, flags); });
}
inline ssize_t readlink(const char* path, char* target, size_t size) {
    return called(__func__, [=] { return ::readlink(path, target, size); });
}
inline int symlink(const char* target, const char* path) {
    return called(__func__, [=] { return ::symlink(target, path); });
}

inline ssize_t getdents64(int fd, void* entries, size_t size) {
    return called(__func__, [=] { return ::getdents64(fd, entries, size); });
}

inline int chdir(const char* path) {
    return called(__func__, [=] { return ::chdir(path); });
}
inline char* getcwd(char* buffer, size_t size) {
    return called(__func__, [=] { return ::getcwd(buffer, size); });
}

inline int gethostname(char* name, size_t size) {
    return called(__func__, [=] { return ::gethostname(name, size); });
}
inline uid_t geteuid() {
    return ::geteuid();
}
inline int getpwuid_r(uid_t user, passwd* record, char* room, size_t size, passwd** found) {
    return numbered(__func__, [=] { return ::getpwuid_r(user, record, room, size, found); });
}

} // namespace sys

#endif
