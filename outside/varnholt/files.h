// SPDX-License-Identifier: MIT
//
// The file system and the machine, in native paths.
//
// A call that fails leaves the system's error in place, for errMapError at once; a call that
// succeeds leaves it as it was. No call is ended by a signal. An empty path names nothing. A
// symbolic link is followed to what it leads to, except by the calls that delete or move: these
// are about the link. All calls may be made from any thread.
#ifndef PLINTH_VARNHOLT_FILES_H
#define PLINTH_VARNHOLT_FILES_H

#include "outside/win32/files.h"
#include "outside/zelexport.h"

/// Opens a file and gives its handle, to be closed with win32CloseFileHandle, or -1. A directory
/// is refused, and so is a pipe that is to be read: nobody waits for its writer, and its end would
/// be a failure. The descriptor is not inherited by child processes.
///
/// `access` is 0x80000000 for reading, 0x40000000 for writing, or both. `disposition` is 1: made
/// new, must not exist; 2: made new or emptied; 3: must exist; 4: kept, made where missing, and
/// refused if it is a device or pipe; 5: must exist and is emptied. `flags` may hold 0x8000000: it
/// will be read from start to end. `security` and `pattern` are null.
///
/// `sharing` says what others may do to a regular file meanwhile; 0 is nothing, 1 is read. An
/// opening that writes, or that shares nothing, excludes every other one made through this call,
/// in this process or another; one that reads and shares reading goes together with its like. Who
/// comes second fails at once (errShared), and before the file is emptied. That ends with the
/// handle, also when the process is killed. A forked process holds the same opening (LockFile keeps
/// it from that); a launched one does not. Openings made in other ways do not take part.
[[nodiscard]] ZEL_EXPORT void* uCreateFile(const char* path, unsigned int access,
                                           unsigned int sharing, void* security,
                                           unsigned int disposition, unsigned int flags,
                                           void* pattern);

/// Moves all bytes from where the one opening stands, up to its end, to where the other does.
/// Between regular files the system most often does that by itself. False on failure; what was
/// moved before it stays.
[[nodiscard]] ZEL_EXPORT bool uMoveBytes(void* from, void* to);

/// Makes one directory. False where that fails; where the reason is that there is a directory at
/// the path already, no error stands, so that errMapError gives errOK. `security` is null.
[[nodiscard]] ZEL_EXPORT bool uCreateDirectory(const char* path, void* security);
/// Removes an empty directory. A link to one is refused.
[[nodiscard]] ZEL_EXPORT bool uRemoveDirectory(const char* path);
/// Removes a file or a link. A directory is refused.
[[nodiscard]] ZEL_EXPORT bool uDeleteFile(const char* path);

/// Gives a file or directory another name. `flags` is 1, an existing file of that name is
/// replaced, or 3: where the name is on another file system, a regular file or a link is copied
/// there, with its permissions and times, and then removed; the copy takes its name only when it
/// is complete, and a failure before that leaves the old target. A directory does not go across.
[[nodiscard]] ZEL_EXPORT bool uMoveFileEx(const char* from, const char* to, unsigned int flags);

/// Begins to read a directory: `pattern` is its path, a separator and `*`. Gives the handle, to be
/// closed with win32FindClose, and the first entry, or -1. The entries come as the system has
/// them, "." and ".." included, in its order, their names unchanged.
[[nodiscard]] ZEL_EXPORT void* uFindFirstFile(const char* pattern, WIN32_FIND_DATAA* found);
/// The next entry; false at the end, where no error stands, and on failure, where one does. Then
/// `found` is as it was.
[[nodiscard]] ZEL_EXPORT bool uFindNextFile(void* handle, WIN32_FIND_DATAA* found);
/// The same without a copy: the name as it lies in the search, until the next call for the handle;
/// null where uFindNextFile gives false.
[[nodiscard]] ZEL_EXPORT const char* uFindNextName(void* handle);

/// What is known of a path.
struct zelFileInfo {
    unsigned int mode;  ///< type and permission bits; the type is mode & 0xF000
    long long size;     ///< bytes
    long long modified; ///< time of the last change, in seconds since 1970
    bool isLink;        ///< the path itself is a symbolic link
};

/// Fills `info` and gives true if there is something at the path. Of a link that leads nowhere,
/// and of every link if `self` is true, the link's own mode, size and time are told.
[[nodiscard]] ZEL_EXPORT bool FileInfo_Read(zelFileInfo& info, const char* path, bool self);

/// The room on the file system of `root`, as the calling user may use it. A `:` with a separator
/// at the end of `root` is dropped first. Either of the last two times the first two is a number
/// of bytes: clusters are counted as large as it takes to fit the numbers.
[[nodiscard]] ZEL_EXPORT bool uGetDiskFreeSpace(const char* root, unsigned int* sectorsPerCluster,
                                                unsigned int* bytesPerSector,
                                                unsigned int* freeClusters,
                                                unsigned int* totalClusters);

// The next three give the length of a text without its NUL. 0 is failure; a result that reaches
// `size` is the room that would be needed, and in either case the buffer is as it was.

ZEL_EXPORT unsigned int uGetCurrentDirectory(unsigned int size, char* buffer);
/// 0 also for a variable that is not set.
ZEL_EXPORT unsigned int uGetEnvironmentVariable(const char* name, char* buffer, unsigned int size);
/// The roots of the drives, each with its NUL. There are none on this platform.
ZEL_EXPORT unsigned int uGetLogicalDriveStrings(unsigned int size, char* buffer);

// These write a text with its NUL, take the room in `size` and leave the length in it. False, and
// the buffer as it was, if there is no such name or it does not fit.

[[nodiscard]] ZEL_EXPORT bool uGetComputerName(char* buffer, unsigned int* size);
/// The name of the user with whose rights the process acts.
[[nodiscard]] ZEL_EXPORT bool uGetUserName(char* buffer, unsigned int* size);

#endif
