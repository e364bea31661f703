// SPDX-License-Identifier: MIT
//
// The folder that a server offers, and the way into it.
//
// A path says little about where it leads: any part of it may be a link, and may become one while
// somebody looks at it. So no request is served by its path. The folder above what it names is made
// the current one, the system is asked where that is, and unless it is the very place that the path
// says, there is an error; after that only the last name counts, in the folder at hand, wherever
// others move that meanwhile. The current folder belongs to the whole process, so a process has one
// ServedFolder, and serves one request at a time.
#ifndef PLINTH_EXAMPLES_FILESERV_FOLDER_H
#define PLINTH_EXAMPLES_FILESERV_FOLDER_H

#include <string>

#include <errstatus.h>
#include <pfupath.h>

namespace fileserv {

class ServedFolder {
public:
    /// Looks where `path` leads; from then on that very place is served.
    errstatus Open(const char* path);
    [[nodiscard]] const std::string& Path() const { return root; }

    /// Makes the folder that a requested path ends in the current one and gives the name there, "."
    /// for the served folder itself. A link is refused, in the last place too.
    errstatus Enter(const std::string& path, pfuDirEntry& name) const;
    /// Makes the folder that a requested path names the current one.
    errstatus EnterFolder(const std::string& path) const;

private:
    [[nodiscard]] errstatus Go(const std::string& below) const;

    std::string root; ///< native, absolute, without any link
};

} // namespace fileserv

#endif
