// SPDX-License-Identifier: MIT
#include "outside/varnholt/files.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "posix/diskfactors.h"
#include "posix/filecalls.h"

namespace {

/// `text` into a buffer of `size` bytes, if it fits. Gives its length, or the room that it needs.
unsigned int Deliver(const char* text, char* buffer, unsigned int size) {
    const std::size_t length = std::strlen(text);
    if (length >= size)
        return length < UINT_MAX ? static_cast<unsigned int>(length) + 1 : UINT_MAX;
    std::memcpy(buffer, text, length + 1);
    return static_cast<unsigned int>(length);
}

/// The same for calls that take the room and give the length in one variable.
bool DeliverName(const char* name, char* buffer, unsigned int* size) {
    const unsigned int length = Deliver(name, buffer, *size);
    if (length >= *size) {
        errno = ENAMETOOLONG;
        return false;
    }
    *size = length;
    return true;
}

} // namespace

bool uGetDiskFreeSpace(const char* root, unsigned int* sectorsPerCluster,
                       unsigned int* bytesPerSector, unsigned int* freeClusters,
                       unsigned int* totalClusters) {
    std::size_t length = std::strlen(root);
    if (length >= 2 && root[length - 2] == ':' && std::strchr("/\\", root[length - 1]) != nullptr)
        length -= 2;
    char path[PATH_MAX];
    if (length >= sizeof path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(path, root, length);
    path[length] = '\0';
    struct statvfs info;
    if (sys::retry([&] { return sys::statvfs(path, &info); }) != 0)
        return false;
    // A few old file systems leave the size of a fragment, in which they count, at 0.
    const posix::DiskFactors factors = posix::FactorsOf(
        info.f_frsize != 0 ? info.f_frsize : info.f_bsize, info.f_bavail, info.f_blocks);
    *sectorsPerCluster = factors.sectorsPerCluster;
    *bytesPerSector = factors.bytesPerSector;
    *freeClusters = factors.freeClusters;
    *totalClusters = factors.totalClusters;
    return true;
}

unsigned int uGetCurrentDirectory(unsigned int size, char* buffer) {
    // Through a buffer of our own: one that is too small would be written to all the same.
    char path[PATH_MAX];
    if (sys::getcwd(path, sizeof path) == nullptr)
        return 0;
    return Deliver(path, buffer, size);
}

unsigned int uGetEnvironmentVariable(const char* name, char* buffer, unsigned int size) {
    const char* value = std::getenv(name);
    return value != nullptr ? Deliver(value, buffer, size) : 0;
}

unsigned int uGetLogicalDriveStrings(unsigned int, char*) {
    return 0;
}

bool uGetComputerName(char* buffer, unsigned int* size) {
    char name[HOST_NAME_MAX + 1];
    if (sys::gethostname(name, sizeof name) != 0)
        return false;
    return DeliverName(name, buffer, size);
}

bool uGetUserName(char* buffer, unsigned int* size) {
    const int former = errno;
    std::vector<char> room(1024);
    passwd record;
    passwd* found = nullptr;
    int error = 0;
    do {
        if (error == ERANGE)
            room.resize(room.size() * 2);
        error = sys::getpwuid_r(sys::geteuid(), &record, room.data(), room.size(), &found);
    } while (error == ERANGE || error == EINTR);
    if (found == nullptr) {
        errno = error != 0 ? error : ENOENT;
        return false;
    }
    errno = former;
    return DeliverName(record.pw_name, buffer, size);
}
