// SPDX-License-Identifier: MIT
#include "pfudir.h"

#include <cstring>
#include <memory>
#include <new>

#include "outside/quillmarsh/files.h"
#include "outside/varnholt/files.h"
#include "outside/varnholt/text.h"
#include "outside/win32/handles.h"

namespace {

bool IsSelfOrParent(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

} // namespace

pfuDir::~pfuDir() = default;

pfuDir* pfuDir::OpenDir(const pfuDirPath& path) {
    // What AddWildcard does, with room for the longest path; an empty one stays empty, and is
    // not found.
    const pfuOSPath native(path);
    char pattern[pfuPathSize + 2];
    const std::size_t length = std::strlen(native);
    std::strcpy(pattern, native);
    if (length != 0)
        std::strcpy(pattern + length, pattern[length - 1] == '/' ? "*" : "/*");

    WIN32_FIND_DATAA first;
    void* const handle = uFindFirstFile(pattern, &first);
    if (handle == zelHandleOfDescriptor(-1))
        return nullptr;
    pfuDir* const directory = new (std::nothrow) pfuDirImplementation(first, handle);
    if (directory == nullptr)
        win32FindClose(handle);
    return directory;
}

pfuDirImplementation::pfuDirImplementation(const WIN32_FIND_DATAA& first, void* opened)
    : handle(opened), firstPending(true) {
    std::strcpy(found.cFileName, first.cFileName);
}

pfuDirImplementation::~pfuDirImplementation() {
    win32FindClose(handle);
}

bool pfuDirImplementation::Read(pfuDirEntry& entry) {
    const char* name;
    do {
        name = firstPending ? found.cFileName : uFindNextName(handle);
        firstPending = false;
        if (name == nullptr)
            return false;
        entry = name;
    } while (IsSelfOrParent(name));
    return true;
}

bool pfuDirImplementation::ReadNextMatching(pfuDirEntry& entry, const char* pattern) {
    if (pattern == nullptr || *pattern == '\0')
        return true;
    struct Delete {
        void operator()(wchar_t* text) const { operator delete(text); }
    };
    const std::unique_ptr<wchar_t, Delete> widePattern(XStrnew(pattern));
    wchar_t wideName[pfuPathSize + 4];
    while (Read(entry)) {
        Strtoxstr(wideName, entry, pfuPathSize + 3);
        if (Strmatch(wideName, widePattern.get()))
            return true;
    }
    return false;
}

bool pfuDirImplementation::ExpandPattern(const char* pattern, dsXArray<pfuDirPath*>& matches) {
    if (pattern == nullptr || *pattern == '\0')
        return false;
    pfuDirEntry entry;
    bool any = false;
    for (; ReadNextMatching(entry, pattern); any = true) {
        auto name = std::make_unique<pfuDirPath>(static_cast<const char*>(entry));
        matches += name.get();
        static_cast<void>(name.release()); // the caller's from here on
    }
    return any;
}
