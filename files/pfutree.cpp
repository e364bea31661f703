// SPDX-License-Identifier: MIT
//
// The operations that go through many directories: making a path, and removing a tree.
#include "files/pathtext.h"
#include "outside/varnholt/files.h"
#include "outside/varnholt/treewalk.h"
#include "pfufs.h"

namespace {

errstatus ResultOf(bool success) {
    return success ? errOK : errMapError();
}

/// Removes what is in a directory. The path of the directory in hand is kept beside the walk: a
/// name that would not fit behind it can be reached by nobody who goes by paths, and ends it.
class TreeRemoval {
public:
    explicit TreeRemoval(const char* top) { files::SetText(path, top); }

    errstatus Run() {
        if (!walk.Open(path))
            return errMapError();
        return RemoveContents(std::strlen(path));
    }

private:
    errstatus RemoveContents(std::size_t length) {
        for (;;) {
            const char* found = nullptr;
            bool isDirectory = false;
            if (!walk.Next(found, isDirectory))
                return errMapError();
            if (found == nullptr)
                return errOK;
            const std::size_t added = std::strlen(found);
            if (!files::CanJoin(length, added))
                return errNameTooLong;
            // The walk's own copy of the name does not last until the way back up.
            path[length] = files::nativeSeparator;
            char* const name = path + length + 1;
            std::memmove(name, found, added + 1); // see files::SetText

            errstatus outcome = isDirectory ? ResultOf(walk.Enter(name)) : errNotDirectory;
            if (outcome == errOK) {
                outcome = RemoveContents(length + 1 + added);
                name[added] = '\0';
                if (outcome == errOK)
                    outcome = ResultOf(walk.Leave() && walk.RemoveDirectory(name));
            } else {
                // What has taken the place of a directory meanwhile is not gone into.
                if (outcome == errNotDirectory)
                    outcome = ResultOf(walk.DeleteFile(name));
                // Somebody else removes here too. If anything is left, the directory itself will
                // turn out not to be empty.
                if (outcome == errNotFound)
                    return errOK;
            }
            if (outcome != errOK)
                return outcome;
        }
    }

    zelTreeWalk walk;
    char path[pfuPathSize];
};

} // namespace

errstatus pfuFS::pfuMakeDirRec(const char* path) {
    // The prefixes are cut from the native form: there a separator is never a part of a character.
    pfuOSPath native(path);
    if (*native == '\0' && path != nullptr && *path != '\0')
        return errNameTooLong;
    const char* const text = native;
    const char* end = text;
    do {
        end += std::strcspn(end, "/");
        // In front of the first separator stands the root; so it does in the empty path.
        char prefix[pfuPathSize];
        if (end == text)
            files::SetText(prefix, "/");
        else
            files::SetText(prefix, text, static_cast<std::size_t>(end - text));
        const pfStat info{pfuDirPath(prefix)};
        if (info.initialized() && !info.isDir())
            return errFileInPath;
        if (!info.initialized() && !uCreateDirectory(prefix, nullptr)) {
            const errstatus outcome = errMapError();
            if (outcome != errOK)
                return outcome;
        }
    } while (*end++ != '\0');
    return errOK;
}

errstatus pfuFS::pfuMakeDirRec(const pfuDirPath& base, const pfuDirPath& rel) {
    if (base.IsOverlong() || rel.IsOverlong())
        return errNameTooLong;
    pfuDirPath working(base);
    const pfuOSPath native(rel);
    for (const char* rest = native; *rest != '\0';) {
        const std::size_t length = std::strcspn(rest, "/");
        char piece[pfuPathSize];
        files::SetText(piece, rest, length);
        rest += length + (rest[length] != '\0' ? 1 : 0);
        if (length == 0) {
            if (!working.IsEmpty())
                continue; // two separators in a row, or a root below the base: the one in hand
            // Below nothing, the root is itself. Where there is none either, nothing is named.
            if (IsUnixStyleAbsPath(rel))
                files::SetText(piece, "|");
        }
        if (!working.IsEmpty() && !files::CanJoin(std::strlen(working), length))
            return errNameTooLong;
        working += piece;
        if (!uCreateDirectory(pfuOSPath(working), nullptr)) {
            const errstatus outcome = errMapError();
            if (outcome != errOK)
                return outcome;
        }
    }
    return errOK;
}

errstatus pfuFS::pfuRemoveDirRec(const pfuDirPath& path) {
    pfuOSPath native(path);
    native.TrimTrailSeps(); // behind a link, a separator would ask for what it leads to
    const errstatus outcome = TreeRemoval(native).Run();
    return outcome == errOK ? pfuRemoveDir(path) : outcome;
}
