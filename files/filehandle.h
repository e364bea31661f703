// SPDX-License-Identifier: MIT
//
// An open file, as the operations on the bytes of files need it.
#ifndef PLINTH_FILES_FILEHANDLE_H
#define PLINTH_FILES_FILEHANDLE_H

#include "outside/quillmarsh/files.h"
#include "outside/varnholt/files.h"
#include "outside/win32/handles.h"
#include "pfupath.h"

namespace files {

/// An opening that closes itself, leaving the last error alone.
class FileHandle {
public:
    explicit FileHandle(void* opened) : handle(opened) {}
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    ~FileHandle() { win32CloseFileHandle(handle); }

    bool IsOpen() const { return handle != zelHandleOfDescriptor(-1); }
    void* Get() const { return handle; }

private:
    void* handle;
};

/// An existing file, to be read from start to end. Others may read it meanwhile.
inline void* OpenSource(const char* path) {
    constexpr unsigned int readAccess = 0x80000000, shareReading = 1;
    constexpr unsigned int openExisting = 3, sequentialScan = 0x8000000;
    return uCreateFile(pfuOSPath(path), readAccess, shareReading, nullptr, openExisting,
                       sequentialScan, nullptr);
}

/// A new or emptied file, to be written. It is nobody else's meanwhile.
inline void* OpenTarget(const char* path) {
    constexpr unsigned int writeAccess = 0x40000000, shareNothing = 0;
    constexpr unsigned int createAlways = 2, normal = 0x80;
    return uCreateFile(pfuOSPath(path), writeAccess, shareNothing, nullptr, createAlways, normal,
                       nullptr);
}

} // namespace files

#endif
