// SPDX-License-Identifier: MIT
#include "outside/varnholt/files.h"

#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "outside/win32/handles.h"
#include "posix/directory.h"
#include "posix/handleobject.h"

namespace {

/// A directory that is being read.
class FindObject final : public posix::HandleObject {
public:
    explicit FindObject(std::unique_ptr<posix::Directory> opened) : directory(std::move(opened)) {}
    void ReleaseHandle() override { delete this; }

    bool Next(WIN32_FIND_DATAA& found) {
        const dirent64* const entry = directory->Next();
        if (entry == nullptr)
            return false;
        // The bytes of the name, its NUL, and a few more that fill the record up.
        std::size_t size = entry->d_reclen - offsetof(dirent64, d_name);
        if (size > sizeof found.cFileName) {
            size = std::strlen(entry->d_name) + 1;
            if (size > sizeof found.cFileName) {
                errno = ENAMETOOLONG;
                return false;
            }
        }
        // Not memcpy: knowing that there is little to copy, the compiler would put an instruction
        // in its place that takes longer to begin than most copies.
        std::memmove(found.cFileName, entry->d_name, size);
        return true;
    }

private:
    std::unique_ptr<posix::Directory> directory;
};

/// Opens the directory in front of the wildcard of a pattern; null where that fails.
std::unique_ptr<posix::Directory> OpenDirectoryOf(const char* pattern) {
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
    return posix::Directory::Open(AT_FDCWD, path, 0);
}

} // namespace

void* uFindFirstFile(const char* pattern, WIN32_FIND_DATAA* found) {
    std::unique_ptr<posix::Directory> directory = OpenDirectoryOf(pattern);
    if (!directory)
        return zelHandleOfDescriptor(-1);
    std::unique_ptr<FindObject> object(new (std::nothrow) FindObject(std::move(directory)));
    if (!object) {
        errno = ENOMEM;
        return zelHandleOfDescriptor(-1);
    }
    if (!object->Next(*found)) {
        if (errno == 0) // a directory whose end comes first has been removed meanwhile
            errno = ENOENT;
        return zelHandleOfDescriptor(-1);
    }
    return static_cast<posix::HandleObject*>(object.release());
}

bool uFindNextFile(void* handle, WIN32_FIND_DATAA* found) {
    return static_cast<FindObject*>(static_cast<posix::HandleObject*>(handle))->Next(*found);
}
