// SPDX-License-Identifier: MIT
#include "mirror.h"

#include <algorithm>
#include <memory>

#include <pfudir.h>
#include <pfufs.h>

#include "names.h"
#include "profile.h"

namespace fileserv {

namespace {

/// The names in a folder of this host, read to the end before anything is done with them: however
/// deep the tree is, one folder at a time is open.
errstatus ReadNames(const std::string& folder, std::vector<std::string>& names) {
    ProfilePoint point(&Profile::Looking());
    const std::unique_ptr<pfuDir> directory(pfuDir::OpenDir(pfuDirPath(folder.c_str())));
    if (directory == nullptr)
        return errMapError();
    for (pfuDirEntry entry; directory->Read(entry);)
        names.emplace_back(entry);
    return errOK;
}

} // namespace

void Mirror::Out(const std::string& path, const std::string& folder) {
    const errstatus status = pfuFS::pfuMakeDirRec(folder.c_str());
    if (status != errOK)
        return progress.Fail(folder, errName(status));
    OutTree(path, folder);
    NoteLoss();
}

void Mirror::Into(const std::string& folder, const std::string& path) {
    const std::string native = Native(path);
    if (native.empty() && !path.empty())
        return progress.Fail(path, errName(errNameTooLong));
    for (std::size_t end = 0; end != std::string::npos && !native.empty();) {
        end = native.find('/', end + 1);
        const errstatus status = remote.Do(MakeFolder, native.substr(0, end));
        if (status != errOK)
            return progress.Fail(path, errName(status));
    }
    IntoTree(folder, path);
    NoteLoss();
}

/// Without a connection nothing more is tried.
void Mirror::NoteLoss() {
    if (!remote.IsUsable())
        progress.Fail("", "the connection is lost, and the rest was not looked at");
}

bool Mirror::IsExcluded(const std::string& name) const {
    return IsOwn(name.c_str()) ||
           std::any_of(excluded.begin(), excluded.end(),
                       [&](const std::string& pattern) { return Matches(name, pattern); });
}

/// Whether something of that name can be mirrored, from or to the paths that go with it.
bool Mirror::Prepare(const std::string& name, const std::string& path, const std::string& local) {
    if (!IsName(name.c_str()))
        progress.Fail(Quoted(name.c_str()), "the name cannot travel");
    else if (path.empty() || local.empty())
        progress.Fail(name, errName(errNameTooLong));
    else
        return true;
    return false;
}

void Mirror::OutTree(const std::string& path, const std::string& folder) {
    std::vector<Entry> entries;
    const errstatus status = remote.GetListing(path, "*", entries);
    if (status != errOK)
        return progress.Fail(path, errName(status));
    progress.AddFolder();
    for (const Entry& entry : entries)
        if (!IsExcluded(entry.name) && remote.IsUsable())
            OutEntry(entry, path, folder);
}

void Mirror::OutEntry(const Entry& entry, const std::string& parent, const std::string& folder) {
    const std::string path = Join(parent, '|', entry.name);
    const std::string local = Join(folder, '/', entry.name);
    if (entry.kind == Unnameable)
        return progress.Fail(parent, "in it, " + Shown(entry.name) + " cannot travel");
    if (!Prepare(entry.name, path, local))
        return;
    if (entry.kind == Link)
        return progress.Fail(path, "a link is not followed");
    if (entry.kind == Folder) {
        const errstatus made = pfuFS::pfuMakeDir(local.c_str());
        return made == errOK ? OutTree(path, local) : progress.Fail(path, errName(made));
    }
    const errstatus status =
        remote.FetchFile(path, local, [this](int count) { progress.AddBytes(count); });
    if (status != errOK)
        return progress.Fail(path, errName(status));
    Verify(path, local);
}

void Mirror::IntoTree(const std::string& folder, const std::string& path) {
    std::vector<std::string> names;
    const errstatus status = ReadNames(folder, names);
    if (status != errOK)
        return progress.Fail(folder, errName(status));
    progress.AddFolder();
    for (const std::string& name : names)
        if (!IsExcluded(name) && remote.IsUsable())
            IntoEntry(name, folder, path);
}

void Mirror::IntoEntry(const std::string& name, const std::string& folder,
                       const std::string& parent) {
    const std::string path = Join(parent, '|', name);
    const std::string local = Join(folder, '/', name);
    if (!Prepare(name, path, local))
        return;
    const pfStat info(local.c_str());
    if (info.isLink())
        return progress.Fail(path, "a link is not followed");
    if (info.isDir()) {
        const errstatus made = remote.Do(MakeFolder, path);
        return made == errOK ? IntoTree(local, path) : progress.Fail(path, errName(made));
    }
    const errstatus status =
        remote.PutFile(local, path, [this](int count) { progress.AddBytes(count); });
    if (status != errOK)
        return progress.Fail(path, errName(status));
    Verify(path, local);
}

/// Asks both sides for what they have now.
void Mirror::Verify(const std::string& path, const std::string& file) {
    Sum theirs, ours;
    const errstatus asked = remote.GetSum(path, theirs);
    const errstatus summed = SumOf(file.c_str(), true, ours);
    if (asked != errOK || summed != errOK)
        progress.Fail(path, errName(asked != errOK ? asked : summed));
    else if (!(theirs == ours))
        progress.Fail(path, "the checksum differs");
    else
        progress.AddFile();
}

} // namespace fileserv
