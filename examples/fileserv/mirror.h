// SPDX-License-Identifier: MIT
//
// Makes one tree like another, out of a served folder or into one: all folders, and all files,
// each verified by its size and checksum. What stands in the target besides stays.
//
// Links are left out, and so are names that cannot travel and whatever fails; the tally lists them.
#ifndef PLINTH_EXAMPLES_FILESERV_MIRROR_H
#define PLINTH_EXAMPLES_FILESERV_MIRROR_H

#include <string>
#include <vector>

#include "progress.h"
#include "remote.h"

namespace fileserv {

class Mirror {
public:
    /// Names that match one of `patterns` are passed by, with all that is below them.
    Mirror(RemoteFolder& served, Progress& watched, const std::vector<std::string>& patterns)
        : remote(served), progress(watched), excluded(patterns) {}

    void Out(const std::string& path, const std::string& folder);
    void Into(const std::string& folder, const std::string& path);

private:
    void NoteLoss();
    [[nodiscard]] bool IsExcluded(const std::string& name) const;
    bool Prepare(const std::string& name, const std::string& path, const std::string& local);
    void OutTree(const std::string& path, const std::string& folder);
    void IntoTree(const std::string& folder, const std::string& path);
    void OutEntry(const Entry& entry, const std::string& path, const std::string& folder);
    void IntoEntry(const std::string& name, const std::string& folder, const std::string& path);
    void Verify(const std::string& path, const std::string& file);

    RemoteFolder& remote;
    Progress& progress;
    const std::vector<std::string>& excluded;
};

} // namespace fileserv

#endif
