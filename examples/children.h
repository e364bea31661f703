// SPDX-License-Identifier: MIT
//
// What examples with child processes share.
#ifndef PLINTH_EXAMPLES_CHILDREN_H
#define PLINTH_EXAMPLES_CHILDREN_H

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <errstatus.h>
#include <execproc.h>

struct PipeDeleter {
    template <typename Stream>
    void operator()(Stream* stream) const {
        DeletePipe(stream);
    }
};

/// A command line of exactly these words.
inline std::string CommandLine(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) {
        line += '\'';
        for (const char c : word)
            line += c == '\'' ? "'\\''" : std::string(1, c);
        line += "' ";
    }
    return line;
}

/// A program in a process of its own, whose output comes back through a pipe. The terminal's
/// signals reach it like the caller.
struct TalkingChild {
    explicit TalkingChild(const std::vector<std::string>& words)
        : process(CommandLine(words).c_str(), 2) {
        oPipeStream* theirEnd = nullptr;
        iPipeStream* ourEnd = nullptr;
        status = CreatePipeSt(&theirEnd, &ourEnd);
        if (status != errOK)
            return;
        says.reset(ourEnd);
        process.AssignCout(oAssignableStream(*theirEnd));
        if (!process.Start())
            status = errMapError();
        DeletePipe(theirEnd); // the child has its own; with ours open the pipe would never end
    }

    ExecProcess process;
    std::unique_ptr<iPipeStream, PipeDeleter> says;
    errstatus status; ///< errOK if the program was started
};

/// The port that a server tells at the end of the line in which it says that it listens.
inline int PortIn(const std::string& line) {
    return std::atoi(line.substr(line.rfind(' ') + 1).c_str());
}

#endif
