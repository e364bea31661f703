// SPDX-License-Identifier: MIT
#include "outside/varnholt/files.h"

#include <climits>
#include <cstring>
#include <memory>
#include <new>

#include "outside/win32/handles.h"
#include "posix/filecalls.h"
#include "posix/handleobject.h"

namespace {

/// A directory that is being read.
class FindObject final : public posix::HandleObject {
public:
    explicit FindObject(DIR* opened) : stream(opened) {}
    ~FindObject() override {
        const sys::KeepErrno keep;
        sys::closedir(stream);
    }
    void ReleaseHandle() override { delete this; }

    bool Next(WIN32_FIND_DATAA& found) {
        const int former = errno;
        errno = 0;
        const dirent* entry = sys::readdir(stream);
        if (entry == nullptr)
            return false;
        const std::size_t length = std::strlen(entry->d_name);
        if (length >= sizeof found.cFileName) {
            errno = ENAMETOOLONG;
            return false;
        }
        std::memcpy(found.cFileName, entry->d_name, length + 1);
        errno = former;
        return true;
    }

private:
    DIR* stream;
};

/// The directory in front of the wildcard of a pattern, or null.
DIR* OpenDirectoryOf(const char* pattern) {
    const std::size_t length = std::strlen(pattern);
    if (length < 2 || std::strcmp(pattern + length - 2, "/*") != 0) {
        errno = length == 0 ? ENOENT : EINVAL;
        return nullptr;
    }
    char path[PATH_MAX];
    if (length > sizeof path) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    // The separator stays: it is all that there is of the root.
    std::memcpy(path, pattern, length - 1);
    path[length - 1] = '\0';
    return sys::opendir(path);
}

} // namespace

void* uFindFirstFile(const char* pattern, WIN32_FIND_DATAA* found) {
    const int former = errno;
    DIR* stream = OpenDirectoryOf(pattern);
    if (stream == nullptr)
        return zelHandleOfDescriptor(-1);
    std::unique_ptr<FindObject> object(new (std::nothrow) FindObject(stream));
    if (!object) {
        sys::closedir(stream);
        errno = ENOMEM;
        return zelHandleOfDescriptor(-1);
    }
    if (!object->Next(*found)) {
        if (errno == 0) // a directory whose end comes first has been removed meanwhile
            errno = ENOENT;
        return zelHandleOfDescriptor(-1);
    }
    errno = former;
    return static_cast<posix::HandleObject*>(object.release());
}

bool uFindNextFile(void* handle, WIN32_FIND_DATAA* found) {
    return static_cast<FindObject*>(static_cast<posix::HandleObject*>(handle))->Next(*found);
}
