// SPDX-License-Identifier: MIT
#include "outside/varnholt/treewalk.h"

#include <cstring>
#include <utility>
#include <vector>

#include "posix/directory.h"

namespace {

constexpr std::size_t openLimit = 16;

using posix::Directory;

/// A directory on the way down. Once it has been let go of, its identity is all that is known.
struct Level {
    std::unique_ptr<Directory> open;
    dev_t device = 0;
    ino_t number = 0;
};

bool IsSelfOrParent(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

bool IsDirectory(int folder, const dirent64& entry) {
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_DIR;
    struct stat info;
    return sys::fstatat(folder, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(info.st_mode);
}

} // namespace

class zelTreeWalk::Body {
public:
    bool Open(const char* path) {
        auto top = Directory::Open(AT_FDCWD, path, O_NOFOLLOW);
        if (!top)
            return false;
        levels.push_back({std::move(top)});
        return true;
    }

    bool Next(const char*& name, bool& isDirectory) {
        const int former = errno;
        const dirent64* entry;
        do {
            entry = levels.back().open->Next();
            if (entry == nullptr && errno != 0)
                return false;
        } while (entry != nullptr && IsSelfOrParent(entry->d_name));
        name = entry != nullptr ? entry->d_name : nullptr;
        isDirectory = entry != nullptr && IsDirectory(InHand(), *entry);
        errno = former;
        return true;
    }

    bool Enter(const char* name) {
        if (levels.size() - firstOpen >= openLimit)
            LetGo();
        std::unique_ptr<Directory> child;
        while (!(child = Directory::Open(InHand(), name, O_NOFOLLOW)))
            if ((errno != EMFILE && errno != ENFILE) || !LetGo())
                return false;
        levels.push_back({std::move(child)});
        return true;
    }

    bool Leave() {
        const auto below = std::move(levels.back().open);
        levels.pop_back();
        Level& level = levels.back();
        if (level.open)
            return true;
        level.open = Directory::Open(below->Descriptor(), "..", 0);
        if (!level.open)
            return false;
        firstOpen = levels.size() - 1;
        struct stat info;
        if (sys::fstat(InHand(), &info) != 0)
            return false;
        if (info.st_dev == level.device && info.st_ino == level.number)
            return true;
        errno = ENOENT;
        return false;
    }

    int InHand() const { return levels.back().open->Descriptor(); }

private:
    /// Closes the uppermost open directory; false if that is the one in hand.
    bool LetGo() {
        const sys::KeepErrno keep;
        Level& level = levels[firstOpen];
        struct stat info;
        if (firstOpen + 1 == levels.size() || sys::fstat(level.open->Descriptor(), &info) != 0)
            return false;
        level.device = info.st_dev;
        level.number = info.st_ino;
        level.open.reset();
        ++firstOpen;
        return true;
    }

    std::vector<Level> levels;
    std::size_t firstOpen = 0; ///< from here on the levels are open
};

zelTreeWalk::zelTreeWalk() : body(std::make_unique<Body>()) {}

zelTreeWalk::~zelTreeWalk() = default;

bool zelTreeWalk::Open(const char* path) {
    return body->Open(path);
}

bool zelTreeWalk::Next(const char*& name, bool& isDirectory) {
    return body->Next(name, isDirectory);
}

bool zelTreeWalk::Enter(const char* name) {
    return body->Enter(name);
}

bool zelTreeWalk::Leave() {
    return body->Leave();
}

bool zelTreeWalk::DeleteFile(const char* name) {
    return sys::unlinkat(body->InHand(), name, 0) == 0;
}

bool zelTreeWalk::RemoveDirectory(const char* name) {
    return sys::unlinkat(body->InHand(), name, AT_REMOVEDIR) == 0;
}
