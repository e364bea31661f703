// SPDX-License-Identifier: MIT
#include "outside/varnholt/files.h"

#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>

#include "outside/win32/handles.h"
#include "posix/directory.h"
#include "posix/handleobject.h"

namespace {

/// A directory that is being read.
class FindObject final : public posix::HandleObject {
public:
    explicit FindObject(int descriptor) : directory(descriptor) {}
    void ReleaseHandle() override { delete this; }

    const char* Next() {
        const dirent64* const entry = directory.Next();
        if (entry == nullptr)
            return nullptr;
        // The record holds the name, its NUL, and a few bytes more that fill it up.
        if (entry->d_reclen - offsetof(dirent64, d_name) > sizeof(WIN32_FIND_DATAA::cFileName) &&
            std::strlen(entry->d_name) >= sizeof(WIN32_FIND_DATAA::cFileName)) {
            errno = ENAMETOOLONG;
            return nullptr;
        }
        return entry->d_name;
    }
    bool Next(WIN32_FIND_DATAA& found) {
        const char* const name = Next();
        if (name != nullptr)
            std::strcpy(found.cFileName, name);
        return name != nullptr;
    }

private:
    posix::Directory directory;
};

FindObject& ObjectOf(void* handle) {
    return *static_cast<FindObject*>(static_cast<posix::HandleObject*>(handle));
}

/// Opens the directory in front of the wildcard of a pattern; null where that fails.
std::unique_ptr<FindObject> OpenDirectoryOf(const char* pattern) {
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
    std::memmove(path, pattern, length - 1);
    path[length - 1] = '\0';
    return posix::Directory::Open<FindObject>(AT_FDCWD, path, 0);
}

} // namespace

void* uFindFirstFile(const char* pattern, WIN32_FIND_DATAA* found) {
    std::unique_ptr<FindObject> object = OpenDirectoryOf(pattern);
    if (!object)
        return zelHandleOfDescriptor(-1);
    if (!object->Next(*found)) {
        if (errno == 0) // a directory whose end comes first has been removed meanwhile
            errno = ENOENT;
        return zelHandleOfDescriptor(-1);
    }
    return static_cast<posix::HandleObject*>(object.release());
}

bool uFindNextFile(void* handle, WIN32_FIND_DATAA* found) {
    return ObjectOf(handle).Next(*found);
}

const char* uFindNextName(void* handle) {
    return ObjectOf(handle).Next();
}
