// SPDX-License-Identifier: MIT
#include "outside/varnholt/files.h"

#include "outside/win32/handles.h"
#include "outside/win32/pipes.h"
#include "posix/filecalls.h"

namespace {

constexpr unsigned int readAccess = 0x80000000;
constexpr unsigned int writeAccess = 0x40000000;
constexpr unsigned int shareReading = 1;
constexpr unsigned int sequentialScan = 0x8000000;

enum Disposition : unsigned int {
    createNew = 1,
    createAlways = 2,
    openExisting = 3,
    openAlways = 4,
    truncateExisting = 5,
};

/// The flags of open, or -1 for what no opening can mean. Never O_TRUNC: a file may be emptied
/// only once it is certain that nobody else has it. A pipe that would be refused is not waited for
/// either.
int OpenFlags(unsigned int access, unsigned int disposition) {
    int flags = O_CLOEXEC | O_NOCTTY;
    switch (access) {
    case readAccess:
        flags |= O_RDONLY | O_NONBLOCK;
        break;
    case writeAccess:
        flags |= O_WRONLY;
        break;
    case readAccess | writeAccess:
        flags |= O_RDWR;
        break;
    default:
        return -1;
    }
    switch (disposition) {
    case createNew:
        return flags | O_CREAT | O_EXCL;
    case createAlways:
        return flags | O_CREAT;
    case openAlways:
        return flags | O_CREAT | O_NONBLOCK;
    case openExisting:
    case truncateExisting:
        return flags;
    default:
        return -1;
    }
}

/// Takes the sharing mode, or tells that another has the file. A lock cannot say more than shared
/// or exclusive, so a writer that would share counts as one that does not.
bool Claim(int descriptor, unsigned int access, unsigned int sharing) {
    const bool shared = (access & writeAccess) == 0 && (sharing & shareReading) != 0;
    const int operation = (shared ? LOCK_SH : LOCK_EX) | LOCK_NB;
    return sys::retry([&] { return sys::flock(descriptor, operation); }) == 0;
}

bool Empty(int descriptor) {
    return sys::retry([&] { return sys::ftruncate(descriptor, 0); }) == 0;
}

/// `made` tells of a file that would be emptied that it was not there before.
int Open(const char* path, int flags, unsigned int disposition, bool& made) {
    const auto open = [&](int more) {
        return sys::retry([&] { return sys::open(path, flags | more, 0666); });
    };
    made = false;
    if (disposition == createAlways) {
        const int descriptor = open(O_EXCL);
        made = descriptor >= 0;
        if (made || errno != EEXIST)
            return descriptor;
    }
    return open(0);
}

/// What follows an open: the refusal of directories, the sharing mode, the emptying. `size` is what
/// it was before that.
bool Settle(int descriptor, unsigned int access, unsigned int sharing, unsigned int disposition,
            off_t& size) {
    struct stat info;
    if (sys::fstat(descriptor, &info) != 0)
        return false;
    size = info.st_size;
    if (S_ISDIR(info.st_mode)) {
        errno = EISDIR;
        return false;
    }
    // Devices and pipes are shared by nature, and keep nothing. Others may use locks of their own
    // at them, which are not touched.
    if (!S_ISREG(info.st_mode)) {
        errno = ENOTSUP;
        return disposition != openAlways && !(S_ISFIFO(info.st_mode) && access == readAccess) &&
               sys::fcntl(descriptor, F_SETFL, 0) == 0;
    }
    if (!Claim(descriptor, access, sharing))
        return false;
    // A file that was there is emptied even where it is empty: it is as new from now on.
    return (disposition != createAlways && disposition != truncateExisting) || Empty(descriptor);
}

/// The same for a file that was made by this opening, to be as new: it is so already, unless
/// somebody else had it in between. To empty it in any case would be the dearest call of all on
/// some file systems.
bool SettleMade(int descriptor, unsigned int access, unsigned int sharing) {
    return Claim(descriptor, access, sharing) &&
           (sys::lseek(descriptor, 0, SEEK_END) == 0 ||
            (Empty(descriptor) && sys::lseek(descriptor, 0, SEEK_SET) == 0));
}

} // namespace

void* uCreateFile(const char* path, unsigned int access, unsigned int sharing, void*,
                  unsigned int disposition, unsigned int hints, void*) {
    const int former = errno;
    const int flags = OpenFlags(access, disposition);
    if (flags < 0) {
        errno = EINVAL;
        return zelHandleOfDescriptor(-1);
    }
    bool made;
    const int descriptor = Open(path, flags, disposition, made);
    if (descriptor < 0) {
        if (errno == ENXIO && disposition == openAlways) // a pipe that nobody reads
            errno = ENOTSUP;
        return zelHandleOfDescriptor(-1);
    }
    off_t size = 0;
    if (!(made ? SettleMade(descriptor, access, sharing)
               : Settle(descriptor, access, sharing, disposition, size))) {
        const sys::KeepErrno keep;
        sys::close(descriptor);
        return zelHandleOfDescriptor(-1);
    }
    constexpr off_t readAhead = 128 << 10; // so much of a file the system reads at once anyway
    if ((hints & sequentialScan) != 0 && size > readAhead)
        sys::posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    errno = former;
    return zelHandleOfDescriptor(descriptor);
}

bool uMoveBytes(void* from, void* to) {
    const int source = zelDescriptorOfHandle(from), target = zelDescriptorOfHandle(to);
    constexpr ssize_t most = 4 << 20; // in a call, which few signals stop
    bool byItself = true;
    for (;;) {
        if (byItself) {
            const sys::KeepErrno keep;
            ssize_t moved;
            do
                moved = sys::retry([&] { return sys::copy_file_range(source, target, most); });
            while (moved == most);
            byItself = moved > 0;
        }
        // Less than asked for is the end, most often. But of some files, such as those of /proc,
        // the system knows fewer bytes than a read gives.
        char block[65536];
        const ssize_t got = sys::retry([&] { return sys::read(source, block, sizeof block); });
        unsigned int put;
        if (got <= 0)
            return got == 0;
        if (!WriteFile(to, block, static_cast<unsigned int>(got), &put, nullptr))
            return false;
    }
}

bool uCreateDirectory(const char* path, void*) {
    if (sys::mkdir(path, 0777) == 0)
        return true;
    if (errno == EEXIST) {
        struct stat info;
        const bool isThere = sys::stat(path, &info) == 0 && S_ISDIR(info.st_mode);
        errno = isThere ? 0 : EEXIST;
    }
    return false;
}

bool uRemoveDirectory(const char* path) {
    return sys::rmdir(path) == 0;
}

bool uDeleteFile(const char* path) {
    return sys::unlink(path) == 0;
}

bool FileInfo_Read(zelFileInfo& info, const char* path, bool self) {
    struct stat found;
    if (sys::lstat(path, &found) != 0)
        return false;
    info.isLink = S_ISLNK(found.st_mode);
    if (info.isLink && !self) {
        const sys::KeepErrno keep;
        struct stat target;
        if (sys::stat(path, &target) == 0)
            found = target;
    }
    static_assert(S_IFMT == 0xF000 && S_IFDIR == 0x4000 && S_IFLNK == 0xA000);
    info.mode = found.st_mode;
    info.size = found.st_size;
    info.modified = found.st_mtime;
    return true;
}
