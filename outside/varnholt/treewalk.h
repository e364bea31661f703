// SPDX-License-Identifier: MIT
//
// A walk through a tree of directories that never leaves it.
//
// The walk is anchored to open directories: it steps from one to the next by the name of an
// entry, never by a path, and never through a link. Whoever renames a directory of the tree, or
// puts a link in its place, while the walk is on its way can make it fail, but cannot lead it out
// of the tree.
//
// However deep it goes, the walk holds at most 16 descriptors, and fewer where the process has run
// out of them. A directory that it had to let go of meanwhile is found again on the way up, and
// then read from its start: what the caller has not removed is seen once more.
//
// A walk belongs to one thread at a time. Calls that give false leave the system's error in place.
#ifndef PLINTH_VARNHOLT_TREEWALK_H
#define PLINTH_VARNHOLT_TREEWALK_H

#include <memory>

#include "outside/zelexport.h"

class ZEL_EXPORT zelTreeWalk {
public:
    zelTreeWalk();
    zelTreeWalk(const zelTreeWalk&) = delete;
    zelTreeWalk& operator=(const zelTreeWalk&) = delete;
    ~zelTreeWalk();

    /// Opens the directory at the top, by native path; a link in the last place is no directory
    /// (errNotDirectory). To be called once, before all others.
    [[nodiscard]] bool Open(const char* path);

    /// The next entry of the directory in hand, "." and ".." left out: its name, unchanged, and
    /// whether it is a directory itself (a link is none). At the end the name is null. It is the
    /// walk's and holds until the next call of it.
    [[nodiscard]] bool Next(const char*& name, bool& isDirectory);

    /// Goes down into the directory of that name in the one in hand. False, and the walk stays
    /// where it is, if it cannot be opened; what is no directory is errNotDirectory.
    [[nodiscard]] bool Enter(const char* name);
    /// Goes back up to the directory that Enter was called in. False if it cannot be found again
    /// because somebody has moved the one in hand: the walk is over then.
    [[nodiscard]] bool Leave();

    /// Remove an entry of the directory in hand: a file or a link, or an empty directory.
    [[nodiscard]] bool DeleteFile(const char* name);
    [[nodiscard]] bool RemoveDirectory(const char* name);

private:
    class Body;
    std::unique_ptr<Body> body;
};

#endif
