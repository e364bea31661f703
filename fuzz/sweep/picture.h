// SPDX-License-Identifier: MIT
//
// What a process holds: a run may not add to it.
#ifndef PLINTH_SWEEP_PICTURE_H
#define PLINTH_SWEEP_PICTURE_H

#include <set>
#include <string>
#include <string_view>

#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

namespace sweep {

class Picture {
public:
    Picture() {
        Walk("/proc/self/fd", [this](const std::string& name) {
            char target[300] = "";
            if (readlink(("/proc/self/fd/" + name).c_str(), target, sizeof target - 1) > 0 &&
                std::string_view(target).substr(0, 6) != "/proc/")
                descriptors.insert(name + " " + target);
        });
        Walk("/proc/self/task", [this](const std::string&) { ++threads; });
        siginfo_t info;
        children = waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
    }

    /// What there is beside `before`, as words.
    std::string Beside(const Picture& before) const {
        std::string more;
        for (const std::string& one : descriptors)
            if (!before.descriptors.contains(one))
                more += ", descriptor " + one;
        if (threads > before.threads)
            more += ", a thread";
        if (children)
            more += ", a child";
        return more;
    }

private:
    std::set<std::string> descriptors;
    int threads = 0;
    bool children = false;

    template <typename Visit>
    static void Walk(const char* folder, Visit visit) {
        DIR* const stream = opendir(folder);
        while (const dirent* const entry = readdir(stream))
            if (entry->d_name[0] != '.')
                visit(entry->d_name);
        closedir(stream);
    }
};

} // namespace sweep

#endif
