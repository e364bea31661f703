// SPDX-License-Identifier: MIT
//
// A file that is held on to, whatever takes its name meanwhile. The library goes by paths, so this
// makes one that leads to that very file: through a descriptor, which only the system can give.
#ifndef PLINTH_EXAMPLES_FILESERV_PINNED_H
#define PLINTH_EXAMPLES_FILESERV_PINNED_H

#include <string>

#include <errstatus.h>

namespace fileserv {

class PinnedFile {
public:
    PinnedFile() = default;
    PinnedFile(const PinnedFile&) = delete;
    PinnedFile& operator=(const PinnedFile&) = delete;
    ~PinnedFile();

    /// Finds a file without opening it, so that no pipe or device is disturbed: these are
    /// errNotSupported. A link in the last place is errNoAccess, unless links are followed.
    errstatus Find(const char* name, bool followLinks);
    /// Makes an empty file. errExists for whatever is there already.
    errstatus Make(const char* name);

    /// Leads to the file for as long as this object lives.
    [[nodiscard]] const char* Path() const { return path.c_str(); }
    /// Bytes, as it was found: also where a `long` cannot count them.
    [[nodiscard]] long long Size() const { return size; }

private:
    errstatus Hold(int opened);

    int descriptor = -1;
    long long size = 0;
    std::string path;
};

} // namespace fileserv

#endif
