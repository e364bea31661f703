// SPDX-License-Identifier: MIT
//
// An open directory and its entries, by the system's own call: the C library's stream takes two
// more calls to make, and a lock for each entry.
#ifndef PLINTH_POSIX_DIRECTORY_H
#define PLINTH_POSIX_DIRECTORY_H

#include <memory>
#include <new>

#include "posix/filecalls.h"

namespace posix {

class Directory {
public:
    /// Opens the directory at `path`, seen from `folder`, with those flags beside the necessary
    /// ones; null where that fails. It may be one with a handle of its own.
    template <typename Object = Directory>
    static std::unique_ptr<Object> Open(int folder, const char* path, int flags) {
        const int fd =
            sys::retry([&] { return sys::openat(folder, path, O_DIRECTORY | O_CLOEXEC | flags); });
        if (fd < 0)
            return nullptr;
        std::unique_ptr<Object> opened(new (std::nothrow) Object(fd));
        if (!opened) {
            sys::close(fd);
            errno = ENOMEM;
        }
        return opened;
    }
    explicit Directory(int fd) : descriptor(fd) {}
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;
    ~Directory() {
        const sys::KeepErrno keep;
        sys::close(descriptor);
    }

    int Descriptor() const { return descriptor; }

    /// The next entry, which holds until the call after it. Null at the end, where errno is 0, and
    /// on failure, where it is not; else errno is as it was.
    const dirent64* Next() {
        if (at == filled && !Fill())
            return nullptr;
        const auto* const entry = reinterpret_cast<const dirent64*>(block + at);
        at += entry->d_reclen;
        return entry;
    }

private:
    bool Fill() {
        const ssize_t got =
            sys::retry([&] { return sys::getdents64(descriptor, block, sizeof block); });
        // One that has been removed meanwhile is at its end.
        if (got == 0 || (got < 0 && errno == ENOENT))
            errno = 0;
        at = 0;
        filled = got > 0 ? static_cast<std::size_t>(got) : 0;
        return got > 0;
    }

    int descriptor;
    std::size_t at = 0;
    std::size_t filled = 0;
    alignas(dirent64) char block[32768];
};

} // namespace posix

#endif
