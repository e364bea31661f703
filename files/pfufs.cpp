// SPDX-License-Identifier: MIT
//
// The operations on one file or directory.
#include "pfufs.h"

#include <cerrno>

#include "files/filehandle.h"

namespace {

errstatus ResultOf(bool success) {
    return success ? errOK : errMapError();
}

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
    const files::FileHandle source(files::OpenSource(from));
    if (!source.IsOpen())
        return errMapError();
    const files::FileHandle target(files::OpenTarget(to));
    return ResultOf(target.IsOpen() && uMoveBytes(source.Get(), target.Get()));
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
