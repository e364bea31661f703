// SPDX-License-Identifier: MIT
//
// Questions about paths and about the machine.
#include <algorithm>
#include <climits>
#include <cstring>

#include "dsstring.h"
#include "files/pathtext.h"
#include "outside/varnholt/files.h"
#include "pfufs.h"

namespace {

constexpr unsigned int typeBits = 0xF000;
constexpr unsigned int directoryType = 0x4000;
constexpr unsigned int nameSize = 256;

/// The name that `ask` gives, or `fallback`.
template <typename Ask>
bool AskName(Ask ask, const char* fallback, dsString& name) {
    char buffer[nameSize];
    unsigned int size = nameSize;
    const bool told = ask(buffer, &size);
    name = told ? buffer : fallback;
    return told;
}

/// What FileInfo_Read tells of the native form of a path, without separators at its end. Most paths
/// are that already, and need not be copied.
bool ReadInfo(const char* path, zelFileInfo& info) {
    const std::size_t length = std::strlen(path);
    if (length != 0 && path[length - 1] != files::nativeSeparator &&
        files::IsPlainNative(path, length))
        return FileInfo_Read(info, path, false);
    pfuOSPath native(path);
    native.TrimTrailSeps();
    return FileInfo_Read(info, native, false);
}

} // namespace

pfStat::pfStat(const pfuDirPath& path) {
    zelFileInfo info;
    if (!ReadInfo(path, info))
        return;
    modified = info.modified;
    size = info.size <= LONG_MAX ? static_cast<long>(info.size) : LONG_MAX;
    directory = (info.mode & typeBits) == directoryType;
    link = info.isLink;
    executable = true;
    found = true;
}

errstatus pfuFS::pfuStat(const char* path, pfStat& info) {
    const pfStat asked{pfuDirPath(path)};
    if (!asked.initialized())
        return errNotFound;
    info = asked;
    return errOK;
}

bool pfuFS::pfuIsDir(const char* path) {
    const pfStat info{pfuDirPath(path)};
    return info.initialized() && info.isDir();
}

bool pfuFS::pfuIsValidDirectory(const char* path) {
    return pfuIsDir(path);
}

bool pfuFS::pfuIsLink(const char* path) {
    const pfStat info{pfuDirPath(path)};
    return info.initialized() && info.isLink();
}

bool pfuFS::pfuIsExecutable(const char* path) {
    const pfStat info{pfuDirPath(path)};
    return info.initialized() && info.canExe();
}

bool pfuFS::pfuIsValidFile(const char* path) {
    const pfStat info{pfuDirPath(path)};
    return info.initialized() && !info.isDir();
}

errstatus pfuFS::pfuGetFileSize(const char* path, long long& size) {
    const pfStat info{pfuDirPath(path)};
    if (!info.initialized())
        return errNotFound;
    size = info.fileSize();
    return errOK;
}

errstatus pfuFS::pfuGetModTime(const char* path, long long& time) {
    const pfStat info{pfuDirPath(path)};
    if (!info.initialized())
        return errNotFound;
    time = info.modTime();
    return errOK;
}

errstatus pfuFS::pfuGetFreeSpace(const char* path, double& bytes) {
    // What stands in front of the first `:` names a drive, where there are drives. Where there
    // are none, the mark is dropped again by the call below.
    const pfuOSPath native(path);
    char root[pfuPathSize + 2];
    const std::size_t length = std::strcspn(native, ":");
    std::memcpy(root, native, length);
    std::strcpy(root + length, ":/");
    unsigned int sectorsPerCluster, bytesPerSector, freeClusters, totalClusters;
    if (!uGetDiskFreeSpace(root, &sectorsPerCluster, &bytesPerSector, &freeClusters,
                           &totalClusters)) {
        bytes = -1.0;
        return errNoDiskInfo;
    }
    bytes = double(sectorsPerCluster) * double(bytesPerSector) * double(freeClusters);
    return errOK;
}

bool pfuFS::pfuGetComputerName(dsString& name) {
    return AskName(uGetComputerName, "UnknownComputer", name);
}

bool pfuFS::pfuGetUserName(dsString& name) {
    return AskName(uGetUserName, "UnknownUser", name);
}

errstatus pfuFS::pfuGetLogicalDrives(dsString& drives) {
    constexpr unsigned int room = 1024;
    constexpr std::size_t bytesOfRoot = 4; // as in "D:\\" with its NUL
    char roots[room];
    const unsigned int filled = uGetLogicalDriveStrings(room, roots);
    drives = "";
    for (std::size_t drive = 0; drive < std::min(filled, room) / bytesOfRoot; ++drive)
        drives += roots[drive * bytesOfRoot];
    return errOK;
}

bool pfuFS::pfuIsParentPath(const char* path, const char* parent, pfuDirPath& rest) {
    if (*path == '\0')
        return true;
    const std::size_t length = std::strlen(parent);
    if (length == 0) {
        rest = path;
        return true;
    }
    if (std::strncmp(path, parent, length) != 0)
        return false;
    const char* behind = path + length;
    // The match must end where a component ends.
    if (*behind != '\0' && *behind != files::neutralSeparator &&
        parent[length - 1] != files::neutralSeparator)
        return false;
    rest = *behind == files::neutralSeparator ? behind + 1 : behind;
    return true;
}

errstatus pfuFS::pfuReadLink(const char*, pfuDirPath&) {
    return errNotSupported;
}
