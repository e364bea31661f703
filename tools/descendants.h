// SPDX-License-Identifier: MIT
//
// The processes below this one, as /proc shows them. Where a process has ended, those that it
// leaves behind are found only if this process is their reaper (prctl, PR_SET_CHILD_SUBREAPER).
#ifndef PLINTH_TOOLS_DESCENDANTS_H
#define PLINTH_TOOLS_DESCENDANTS_H

#include <string>
#include <vector>

namespace tools {

struct Process {
    int id = 0;
    int parent = 0;
    unsigned long long start = 0; ///< with the id, this names a process for good
    bool ended = false;           ///< and its parent has not noticed
    int depth = 0;                ///< 0 for a child of this process

    [[nodiscard]] bool Is(const Process& other) const {
        return id == other.id && start == other.start;
    }
};

/// Every descendant of this process but for some and what is below them; parents come first, and
/// those with the same parent by their ids.
[[nodiscard]] std::vector<Process> Descendants(const std::vector<Process>& without);

/// Sends a signal to a process, and to no other that may have got its id meanwhile.
void Send(const Process& process, int signal);

/// The command line of a process on one line, for a reader; its name if it has none.
[[nodiscard]] std::string CommandOf(const Process& process);

/// What the descriptors of a process lead to, as /proc tells it: "pipe:[4711]". None of a process
/// that may not be looked at.
[[nodiscard]] std::vector<std::string> OpenBy(const Process& process);

/// What a descriptor of this process leads to, in the same form.
[[nodiscard]] std::string TargetOf(int descriptor);

} // namespace tools

#endif
