// SPDX-License-Identifier: MIT
#include "folder.h"

#include <pfufs.h>

#include "names.h"

namespace fileserv {

namespace {

/// Where the process is, as the system sees it; empty if that cannot be told.
std::string CurrentFolder() {
    pfuOSPath here;
    here.GetCurrentDir();
    return std::string(here);
}

} // namespace

errstatus ServedFolder::Open(const char* path) {
    const errstatus status = pfuFS::pfuChangeDir(path);
    if (status != errOK)
        return status;
    root = CurrentFolder();
    return root.empty() || pfuFS::pfuChangeDir(root.c_str()) != errOK ? errInvalid : errOK;
}

errstatus ServedFolder::Enter(const std::string& path, pfuDirEntry& name) const {
    const errstatus status = CheckPath(path);
    if (status != errOK)
        return status;
    const std::string native = Native(path);
    const std::size_t separator = native.rfind('/');
    const bool deep = separator != std::string::npos;
    const errstatus gone = Go(deep ? native.substr(0, separator) : std::string());
    if (gone != errOK)
        return gone;
    const std::string last = deep ? native.substr(separator + 1) : native;
    name = last.empty() ? "." : last.c_str();
    return pfuFS::pfuIsLink(name) ? errNoAccess : errOK;
}

errstatus ServedFolder::EnterFolder(const std::string& path) const {
    const errstatus status = CheckPath(path);
    return status == errOK ? Go(Native(path)) : status;
}

/// Goes to a native path below the served folder, and nowhere else.
errstatus ServedFolder::Go(const std::string& below) const {
    const std::string place = below.empty() ? root : (root == "/" ? "" : root) + '/' + below;
    if (place.size() >= pfuPathSize)
        return errNameTooLong;
    const errstatus status = pfuFS::pfuChangeDir(place.c_str());
    if (status == errNotDirectory && !pfStat(place.c_str()).initialized())
        return errNotFound;
    if (status != errOK)
        return status;
    return CurrentFolder() == place ? errOK : errNoAccess;
}

} // namespace fileserv
