// SPDX-License-Identifier: MIT
//
// Giving a file another name, also on another file system.
#include "outside/varnholt/files.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "posix/filecalls.h"

namespace {

constexpr unsigned int replaceExisting = 1;
constexpr unsigned int copyAllowed = 2;

class Descriptor {
public:
    explicit Descriptor(int opened) : fd(opened) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        const sys::KeepErrno keep;
        if (fd >= 0)
            sys::close(fd);
    }
    operator int() const { return fd; }
    /// False if what was written turns out to be lost, as some file systems tell only here.
    bool Close() { return sys::close(std::exchange(fd, -1)) == 0 || errno == EINTR; }

private:
    int fd;
};

/// A private directory beside the target, in which the copy grows until it is complete. Nobody
/// but its owner can put anything else in its place.
class Nursery {
public:
    explicit Nursery(const std::string& target)
        : folder(target.substr(0, target.rfind('/') + 1) + ".moving-XXXXXX"),
          child(folder + "/file"), made(sys::mkdtemp(folder.data()) != nullptr) {
        std::copy(folder.begin(), folder.end(), child.begin()); // now with its own letters
    }
    Nursery(const Nursery&) = delete;
    Nursery& operator=(const Nursery&) = delete;
    ~Nursery() {
        const sys::KeepErrno keep;
        if (made) {
            sys::unlink(child.c_str());
            sys::rmdir(folder.c_str());
        }
    }
    bool IsMade() const { return made; }
    const char* Child() const { return child.c_str(); }

private:
    std::string folder;
    std::string child; // memory for it comes before there is anything to remove
    bool made;
};

bool CopyBytes(int from, int to) {
    constexpr std::size_t blockSize = 65536;
    const auto block = std::make_unique<char[]>(blockSize);
    for (;;) {
        const ssize_t got = sys::retry([&] { return sys::read(from, block.get(), blockSize); });
        if (got <= 0)
            return got == 0;
        for (ssize_t put = 0; put < got;) {
            const char* rest = block.get() + put;
            const std::size_t left = static_cast<std::size_t>(got - put);
            const ssize_t step = sys::retry([&] { return sys::write(to, rest, left); });
            if (step < 0)
                return false;
            put += step;
        }
    }
}

/// The same file at `target`: contents, owner as far as that is allowed, permissions, times.
bool CopyFile(const char* source, const char* target) {
    const Descriptor from(
        sys::retry([&] { return sys::open(source, O_RDONLY | O_CLOEXEC | O_NOFOLLOW); }));
    struct stat info;
    if (from < 0 || sys::fstat(from, &info) != 0)
        return false;
    Descriptor to(sys::retry(
        [&] { return sys::open(target, O_WRONLY | O_CLOEXEC | O_CREAT | O_EXCL, 0600); }));
    if (to < 0 || !CopyBytes(from, to))
        return false;
    // Who gives a file away loses its set-id bits, so the permissions come after the owner; where
    // the owner cannot be kept, a set-id bit must not work for somebody else.
    const bool kept = sys::fchown(to, info.st_uid, info.st_gid) == 0;
    const mode_t permissions = info.st_mode & (kept ? 07777u : 0777u);
    const timespec times[] = {info.st_atim, info.st_mtim};
    return sys::fchmod(to, permissions) == 0 && sys::futimens(to, times) == 0 && to.Close();
}

bool CopyLink(const char* source, const char* copy) {
    char target[PATH_MAX];
    const ssize_t length = sys::readlink(source, target, sizeof target - 1);
    if (length < 0)
        return false;
    target[length] = '\0';
    return sys::symlink(target, copy) == 0;
}

/// rename has found that the names lie on different file systems.
bool MoveAcross(const char* from, const char* to) {
    struct stat info;
    if (sys::lstat(from, &info) != 0)
        return false;
    if (!S_ISREG(info.st_mode) && !S_ISLNK(info.st_mode)) {
        errno = EXDEV;
        return false;
    }
    const Nursery nursery(to);
    if (!nursery.IsMade())
        return false;
    const bool copied =
        S_ISLNK(info.st_mode) ? CopyLink(from, nursery.Child()) : CopyFile(from, nursery.Child());
    return copied && sys::rename(nursery.Child(), to) == 0 && sys::unlink(from) == 0;
}

} // namespace

bool uMoveFileEx(const char* from, const char* to, unsigned int flags) {
    if ((flags & ~copyAllowed) != replaceExisting) {
        errno = EINVAL;
        return false;
    }
    const int former = errno;
    if (sys::rename(from, to) != 0) {
        if (errno != EXDEV || (flags & copyAllowed) == 0 || !MoveAcross(from, to))
            return false;
        errno = former;
    }
    return true;
}
