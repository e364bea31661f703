// SPDX-License-Identifier: MIT
//
// Reading a directory: the names of its entries, one at a time.
//
// Names are delivered as the system has them, also those that hold a separator of another form or
// bytes that are no text, without the directory in front and without "." and "..". Their order is
// the system's. What is made or removed while the directory is read may or may not be seen;
// everything else is seen once. A directory that was read to its end stays at its end.
//
// An open directory holds one descriptor and belongs to one thread at a time.
#ifndef PLINTH_PFUDIR_H
#define PLINTH_PFUDIR_H

#include "dsdatcol.h"
#include "outside/win32/files.h"
#include "outside/zelexport.h"
#include "pfupath.h"

/// A directory that is being read.
class ZEL_EXPORT pfuDir {
public:
    pfuDir() = default;
    pfuDir(const pfuDir&) = delete;
    pfuDir& operator=(const pfuDir&) = delete;

    /// Opens a directory; the caller deletes it. Null on failure, and the system's error is then
    /// in place for errMapError.
    [[nodiscard]] static pfuDir* OpenDir(const pfuDirPath& path);

    /// Closes the directory.
    virtual ~pfuDir();
    /// The next entry. False at the end and on a failure, which look the same.
    virtual bool Read(pfuDirEntry& entry) = 0;
    /// The next entry whose name matches the pattern: `*` is any run of characters, `?` any one
    /// character, everything else itself, and case counts. The names between are passed by. A
    /// null or empty pattern is true at once, and nothing is read.
    virtual bool ReadNextMatching(pfuDirEntry& entry, const char* pattern) = 0;
    /// Appends the names of all further entries that match, each in a new object that the caller
    /// deletes. False if there is none, or if the pattern is null or empty.
    virtual bool ExpandPattern(const char* pattern, dsXArray<pfuDirPath*>& matches) = 0;
};

/// The directory of the system. What filters or adds entries derives from it and overrides Read:
/// the other two operations read through the virtual one.
class ZEL_EXPORT pfuDirImplementation : public pfuDir {
public:
    /// Takes over the handle and the first entry that uFindFirstFile gave.
    pfuDirImplementation(const WIN32_FIND_DATAA& first, void* opened);
    ~pfuDirImplementation() override;

    bool Read(pfuDirEntry& entry) override;
    bool ReadNextMatching(pfuDirEntry& entry, const char* pattern) override;
    bool ExpandPattern(const char* pattern, dsXArray<pfuDirPath*>& matches) override;

private:
    WIN32_FIND_DATAA found;
    void* handle;
    bool firstPending;
};

#endif
