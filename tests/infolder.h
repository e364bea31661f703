// SPDX-License-Identifier: MIT
//
// A test that works in a private folder.
#ifndef PLINTH_TESTS_INFOLDER_H
#define PLINTH_TESTS_INFOLDER_H

#include <fstream>

#include <gtest/gtest.h>

#include "tests/support.h"

namespace fs = std::filesystem;

class InFolder : public testing::Test {
protected:
    InFolder() { fs::current_path(folder.path); }

    static void Put(const fs::path& path, const std::string& contents = "") {
        std::ofstream(path, std::ios::binary) << contents;
    }
    static std::string Get(const fs::path& path) {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    /// Runs `work` in a forked process, which ends with its result.
    template <typename Work>
    static pid_t Fork(Work work) {
        const pid_t child = fork();
        if (child == 0)
            _exit(work());
        return child;
    }
    /// What the process ends with, -1 if by a signal.
    static int EndOf(pid_t child) {
        int status = -1;
        pid_t ended;
        while ((ended = waitpid(child, &status, 0)) == -1 && errno == EINTR)
            continue;
        return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    /// True if `work` is so in a forked process, without the rights of root if `asNobody` is set.
    template <typename Work>
    static bool IsSoInFork(Work work, bool asNobody = false) {
        return EndOf(Fork([&] {
                   if (asNobody && geteuid() == 0 && (setegid(65534) != 0 || seteuid(65534) != 0))
                       return 2;
                   return work() ? 0 : 1;
               })) == 0;
    }

    support::TempFolder folder;
};

#endif
