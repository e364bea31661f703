// SPDX-License-Identifier: MIT
//
// Locks between processes that are tied to a named file, and a file stream buffer that reports as
// they do.
#ifndef PLINTH_PFULOCK_H
#define PLINTH_PFULOCK_H

#include <fstream>

#include "errstatus.h"
#include "outside/zelexport.h"
#include "pfupath.h"

/// A lock that one object at a time holds, of all that name the same file, in any process and any
/// thread. The file is a meeting point: it is made by the first Lock, its contents mean nothing,
/// and nothing here deletes it. Whoever deletes it makes a new lock of the same name.
///
/// An object belongs to one thread at a time. What it holds ends with it, and with the process,
/// however that ends. Processes that are launched or forked meanwhile have no part in it: in a
/// forked one the copy of the object holds nothing, and its Release is that of any other. (A fork
/// made around the C library, or in another thread during Lock itself, does copy the opening. It
/// cannot keep the lock from being given back, but does keep that of a killed holder.)
///
/// While it is held, no operation of this library opens the file. The path must be that of a
/// regular file: a device or a pipe could not keep anybody out and ends Lock (errNotSupported).
class ZEL_EXPORT pfuFileLock {
public:
    /// A lock for that path, to be deleted by the caller; null if memory has run out. The file is
    /// not touched yet.
    static pfuFileLock* Construct(const pfuDirPath& path);

    pfuFileLock() = default;
    pfuFileLock(const pfuFileLock&) = delete;
    pfuFileLock& operator=(const pfuFileLock&) = delete;

    /// Waits until the lock can be had, with an attempt each second, in no order among those who
    /// wait. errOK at once if this object holds it already. What waiting cannot cure, like a
    /// folder that is missing or a lack of rights, ends it with the reason.
    virtual errstatus Lock() = 0;
    /// Gives the lock back. An object that does not hold it only opens and closes the file: errOK
    /// if nobody holds it, else errShared, at once.
    virtual errstatus Release() = 0;
    virtual ~pfuFileLock();
};

/// A file buffer that opens either form of path. Unlike elsewhere, true means failure.
class ZEL_EXPORT lockFileBuf : public std::basic_filebuf<char> {
public:
    /// `mode` is the value of a std::ios_base::openmode; `protection` has no meaning.
    bool Open(const char* path, int mode, int protection);
    /// Goes back to the start, which writes what waits, and closes.
    bool Close();

private:
    errstatus LockAction(int action);
};

#endif
