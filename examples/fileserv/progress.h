// SPDX-License-Identifier: MIT
//
// How far a mirror is: on a terminal a line of standard error that changes, elsewhere a plain line
// now and then. And in the end, what was done and what was not.
#ifndef PLINTH_EXAMPLES_FILESERV_PROGRESS_H
#define PLINTH_EXAMPLES_FILESERV_PROGRESS_H

#include <chrono>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <errstatus.h>

#include "names.h"

namespace fileserv {

struct Tally {
    int files = 0;
    int folders = 0;
    long long bytes = 0;
    std::vector<std::string> failures; ///< a path and the reason each
};

class Progress {
public:
    /// Whether standard error is a terminal is for the program to find out.
    explicit Progress(bool onTerminal) : terminal(onTerminal) {}

    void AddFolder() { ++tally.folders; }
    void AddFile() { ++tally.files; }
    void AddBytes(int count) {
        tally.bytes += count;
        const Clock::time_point now = Clock::now();
        const auto pause = terminal ? std::chrono::milliseconds(100) : std::chrono::seconds(10);
        if (now - shown < pause)
            return;
        shown = now;
        std::cerr << (terminal ? "\r" : "") << Line() << (terminal ? "\033[K" : "\n") << std::flush;
    }
    void Fail(const std::string& path, const std::string& reason) {
        tally.failures.push_back((path.empty() ? "." : Shown(path)) + ": " + reason);
    }

    [[nodiscard]] const Tally& Result() const { return tally; }
    [[nodiscard]] std::string Line() const {
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        std::ostringstream line;
        line << tally.files << " files, " << tally.folders << " folders, " << tally.bytes
             << " bytes, " << std::fixed << std::setprecision(1)
             << (seconds > 0 ? static_cast<double>(tally.bytes) / seconds / 1e6 : 0) << " MB/s";
        return line.str();
    }
    /// The last line, and the list of what failed. True if nothing did.
    bool Report() const {
        if (terminal)
            std::cerr << "\r\033[K" << std::flush;
        std::cout << Line() << ", " << tally.failures.size() << " failed\n";
        for (const std::string& failure : tally.failures)
            std::cout << "failed: " << failure << '\n';
        std::cout << std::flush;
        return tally.failures.empty();
    }

private:
    using Clock = std::chrono::steady_clock;

    const bool terminal;
    const Clock::time_point start = Clock::now();
    Clock::time_point shown = start;
    Tally tally;
};

} // namespace fileserv

#endif
