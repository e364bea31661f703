// SPDX-License-Identifier: MIT
#include "pinned.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "names.h"

namespace fileserv {

PinnedFile::~PinnedFile() {
    if (descriptor >= 0)
        close(descriptor);
}

errstatus PinnedFile::Find(const char* name, bool followLinks) {
    const errstatus status =
        Hold(open(Native(name).c_str(), O_PATH | O_CLOEXEC | (followLinks ? 0 : O_NOFOLLOW)));
    if (status != errOK)
        return status;
    struct stat info;
    if (fstat(descriptor, &info) != 0)
        return errMapError();
    size = info.st_size;
    switch (info.st_mode & S_IFMT) {
    case S_IFREG:
        return errOK;
    case S_IFDIR:
        return errIsDirectory;
    case S_IFLNK:
        return errNoAccess;
    default:
        return errNotSupported;
    }
}

errstatus PinnedFile::Make(const char* name) {
    return Hold(open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
}

errstatus PinnedFile::Hold(int opened) {
    if (opened < 0)
        return errMapError();
    descriptor = opened;
    path = "/proc/self/fd/" + std::to_string(opened);
    return errOK;
}

} // namespace fileserv
