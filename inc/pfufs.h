// SPDX-License-Identifier: MIT
//
// The file system: what is known of a path, and the operations that change what stands there.
//
// Every path argument is neutral or native text (see pfupath.h). An empty path, and so one of more
// than 1023 bytes, names nothing: an operation that says nothing else about it fails, with the
// reason that it gives for a path where nothing is. Nothing here retries or undoes what it did
// before a failure, and what others do to the same paths meanwhile is kept away only by the
// sharing modes that pfuCopyFile and pfuReplaceString tell of. Any thread may call anything at any
// time; the current directory belongs to the whole process.
#ifndef PLINTH_PFUFS_H
#define PLINTH_PFUFS_H

#include <fstream>

#include "errstatus.h"
#include "outside/zelexport.h"
#include "pfupath.h"

class dsString;

/// What was found at a path at one moment. Symbolic links are followed to what they lead to; of
/// one that leads nowhere, the link itself is described.
class ZEL_EXPORT pfStat {
public:
    /// Asks the system. Separators at the end of the path do not count.
    pfStat(const pfuDirPath& path);

    /// Something was found. If not, nothing else here means anything.
    bool initialized() const { return found; }
    bool isDir() const { return directory; } ///< a directory, or a link to one
    /// True for everything found.
    bool canExe() const { return executable; }
    /// The path itself is a symbolic link, whatever it leads to.
    bool isLink() const { return link; }
    /// Time of the last change of the contents, in seconds since 1970-01-01 00:00 UTC.
    long long modTime() const { return modified; }
    /// Bytes; the largest `long` for a file that is larger.
    long fileSize() const { return size; }

private:
    bool found = false;
    bool directory = false;
    bool executable = false;
    bool link = false;
    long long modified = 0;
    long size = 0;
};

/// The operations, all static. A result that is not errOK is the system's reason as errMapError
/// tells it, unless the operation says otherwise, and outputs are then untouched.
class ZEL_EXPORT pfuFS {
public:
    pfuFS() = delete;

    // Questions. Whatever the reason, a path that cannot be asked is errNotFound or false.

    static errstatus pfuStat(const char* path, pfStat& info); ///< errNotFound if nothing is there
    static bool pfuIsDir(const char* path);                   ///< a directory, or a link to one
    static bool pfuIsValidDirectory(const char* path);        ///< the same as pfuIsDir
    static bool pfuIsLink(const char* path);       ///< the path itself is a symbolic link
    static bool pfuIsExecutable(const char* path); ///< true for everything that exists
    static bool pfuIsValidFile(const char* path);  ///< anything but a directory
    static errstatus pfuGetFileSize(const char* path, long long& size); ///< bytes
    static errstatus pfuGetModTime(const char* path, long long& time);  ///< seconds since 1970
    /// Bytes that the calling user may still write to the file system of `path`, or of the part
    /// of it in front of its first `:`. On failure -1, with errNoDiskInfo.
    static errstatus pfuGetFreeSpace(const char* path, double& bytes);
    /// On failure false, and `name` is "UnknownComputer".
    static bool pfuGetComputerName(dsString& name);
    /// On failure false, and `name` is "UnknownUser".
    static bool pfuGetUserName(dsString& name);
    /// The letters of the drives, of which this platform has none. Always errOK.
    static errstatus pfuGetLogicalDrives(dsString& drives);
    /// True if `path` is `parent` or lies below it; `rest` is then what follows. Compares neutral
    /// texts and asks no file system. Everything lies below an empty parent; an empty path lies
    /// below every parent, and then `rest` is untouched.
    static bool pfuIsParentPath(const char* path, const char* parent, pfuDirPath& rest);
    /// Always errNotSupported.
    static errstatus pfuReadLink(const char* path, pfuDirPath& target);

    // Directories. New ones, like new files, get the rights that the umask of the process leaves.

    /// errOK also if the directory is there already; errExists if something else is.
    static errstatus pfuMakeDir(const char* path);
    /// Makes every directory of the path that is missing. What exists and is no directory ends it
    /// with errFileInPath. An empty path is the root; one that is too long is errNameTooLong.
    static errstatus pfuMakeDirRec(const char* path);
    /// Makes every directory of `rel` below `base`, which must exist. What is in the way of one
    /// ends it with errExists. Below an empty base, `rel` is a path of its own. What is too long
    /// is errNameTooLong.
    static errstatus pfuMakeDirRec(const pfuDirPath& base, const pfuDirPath& rel);
    /// Removes an empty directory.
    static errstatus pfuRemoveDir(const char* path);
    /// Removes a directory with all that is in it. Links are removed, never followed, in the last
    /// place of `path` too, and the walk stays in the tree whatever others do to it meanwhile. The
    /// first failure ends it, with everything that is left in place: so does a path below that
    /// would have more than 1023 bytes (errNameTooLong).
    static errstatus pfuRemoveDirRec(const pfuDirPath& path);
    /// Makes the path the current directory of the process; errNotDirectory if it is none.
    static errstatus pfuChangeDir(const char* path);

    // Files.

    /// Removes a file or a link; a directory is refused.
    static errstatus pfuDeleteFile(const char* path);
    static errstatus pfuUnlink(const char* path); ///< the same
    /// Gives a file or directory another name; an existing file of that name is replaced. If both
    /// are names of one file already, they stay. A file can be moved to another file system, a
    /// directory cannot (errCrossDevice).
    static errstatus pfuRenameFile(const char* from, const char* to);
    /// Copies the bytes of a file into a new or emptied one, and neither its rights nor its time.
    /// Nobody else can write the source or open the target through the library meanwhile; a copy
    /// onto itself is errShared and leaves the file intact, a named pipe as the source is
    /// errNotSupported and not waited for. What was written before a failure stays.
    static errstatus pfuCopyFile(const char* from, const char* to);

    // The bytes of a file. Any failure is errFailed, and so is a named pipe as the source. Who else
    // goes through the library can read the source meanwhile and not write it, and cannot open the
    // target.

    /// A small checksum for telling files apart (docs/formats.md).
    static errstatus pfuCalcCheckSumByPath(const char* path, unsigned int& checksum);
    /// Writes the file `to`: the file `from` with each occurrence of `oldText`, leftmost first,
    /// replaced by `newText`, which is not searched. Bytes that are NUL are like any other. What
    /// was written before a failure stays; an `oldText` that is empty or has more than 4095 bytes,
    /// and a file that `to` already names, leave `to` untouched.
    static errstatus pfuReplaceString(const char* const oldText, const char* const newText,
                                      const char* from, const char* to);

    /// Clear the stream's state and open it: errOK, or the system's reason, with failbit set.
    /// `mode` is the value of a std::ios_base::openmode.
    static errstatus pfuOpenStream(const char* path, int mode, std::basic_fstream<char>& stream);
    /// The same for reading alone.
    static errstatus pfuOpenStream(const char* path, int mode, std::basic_ifstream<char>& stream);
    /// The same for writing alone.
    static errstatus pfuOpenStream(const char* path, int mode, std::basic_ofstream<char>& stream);
};

/// Opens the stream for reading. The stream's state tells how that went.
ZEL_EXPORT void OpenFile(std::basic_ifstream<char>& stream, const char* path);
/// The buffer's own `open`, and its result. `protection` has no meaning on this platform.
ZEL_EXPORT std::basic_filebuf<char>* OpenFile(std::basic_filebuf<char>& buffer, const char* path,
                                              int mode, int protection);

#endif
