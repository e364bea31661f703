// SPDX-License-Identifier: MIT
//
// The operations on one file or directory.
#include "pfufs.h"

#include <cerrno>

#include "outside/quillmarsh/files.h"
#include "outside/varnholt/files.h"
#include "outside/win32/handles.h"
#include "outside/win32/pipes.h"

namespace {

errstatus ResultOf(bool success) {
    return success ? errOK : errMapError();
}

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

std::ios_base::openmode OpenMode(int mode) {
    return static_cast<std::ios_base::openmode>(mode);
}

/// The stream library asks the system for a file, but a mode that it does not know, or a stream
/// that is open already, it refuses on its own, without an error of the system.
template <typename Stream>
errstatus OpenStream(const char* path, int mode, Stream& stream) {
    const int former = errno;
    errno = EINVAL;
    stream.clear();
    stream.open(pfuOSPath(path), OpenMode(mode));
    if (stream.fail())
        return errMapError();
    errno = former;
    return errOK;
}

} // namespace

errstatus pfuFS::pfuMakeDir(const char* path) {
    return ResultOf(uCreateDirectory(pfuOSPath(path), nullptr));
}

errstatus pfuFS::pfuRemoveDir(const char* path) {
    return ResultOf(uRemoveDirectory(pfuOSPath(path)));
}

errstatus pfuFS::pfuDeleteFile(const char* path) {
    return ResultOf(uDeleteFile(pfuOSPath(path)));
}

errstatus pfuFS::pfuUnlink(const char* path) {
    return ResultOf(zel_unlink(pfuOSPath(path)) == 0);
}

errstatus pfuFS::pfuRenameFile(const char* from, const char* to) {
    constexpr unsigned int replaceExisting = 1, copyAllowed = 2;
    return ResultOf(uMoveFileEx(pfuOSPath(from), pfuOSPath(to), replaceExisting | copyAllowed));
}

errstatus pfuFS::pfuCopyFile(const char* from, const char* to) {
    constexpr unsigned int readAccess = 0x80000000, writeAccess = 0x40000000;
    constexpr unsigned int shareReading = 1, shareNothing = 0;
    constexpr unsigned int createAlways = 2, openExisting = 3;
    constexpr unsigned int normal = 0x80, sequentialScan = 0x8000000;

    const FileHandle source(uCreateFile(pfuOSPath(from), readAccess, shareReading, nullptr,
                                        openExisting, sequentialScan, nullptr));
    if (!source.IsOpen())
        return errMapError();
    const FileHandle target(uCreateFile(pfuOSPath(to), writeAccess, shareNothing, nullptr,
                                        createAlways, normal, nullptr));
    if (!target.IsOpen())
        return errMapError();
    char block[65536];
    for (;;) {
        unsigned int got, put;
        if (!ReadFile(source.Get(), block, sizeof block, &got, nullptr))
            return errMapError();
        if (got == 0)
            return errOK;
        if (!WriteFile(target.Get(), block, got, &put, nullptr) || put < got)
            return errMapError();
    }
}

errstatus pfuFS::pfuChangeDir(const char* path) {
    if (!pfuIsDir(path))
        return errNotDirectory;
    // Where there are drives, that of the path would have to be made the current one first.
    return ResultOf(zel_chdir(pfuOSPath(path)) == 0);
}

errstatus pfuFS::pfuOpenStream(const char* path, int mode, std::basic_fstream<char>& stream) {
    return OpenStream(path, mode, stream);
}

errstatus pfuFS::pfuOpenStream(const char* path, int mode, std::basic_ifstream<char>& stream) {
    return OpenStream(path, mode, stream);
}

errstatus pfuFS::pfuOpenStream(const char* path, int mode, std::basic_ofstream<char>& stream) {
    return OpenStream(path, mode, stream);
}

void OpenFile(std::basic_ifstream<char>& stream, const char* path) {
    stream.open(pfuOSPath(path), std::ios_base::in);
}

std::basic_filebuf<char>* OpenFile(std::basic_filebuf<char>& buffer, const char* path, int mode,
                                   int) {
    return buffer.open(pfuOSPath(path), OpenMode(mode));
}
