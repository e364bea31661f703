// SPDX-License-Identifier: MIT
//
// Commands to talk to.
#ifndef PLINTH_TESTS_PIPED_H
#define PLINTH_TESTS_PIPED_H

#include <iterator>
#include <string>
#include <utility>

#include <sys/wait.h>

#include "execproc.h"

/// A command with its streams on pipes.
struct Piped {
    explicit Piped(const std::string& command)
        : process(command.c_str(), 7), status(OpenPipeWithChildProc(&in, &out, &err, &process)) {}
    ~Piped() {
        CloseInput();
        if (out != nullptr)
            DeletePipe(out);
        if (err != nullptr)
            DeletePipe(err);
    }
    void CloseInput() {
        if (in != nullptr)
            DeletePipe(std::exchange(in, nullptr));
    }
    /// All that comes out, once the input is at its end.
    std::string Output() {
        CloseInput();
        return {std::istreambuf_iterator<char>(*out), {}};
    }
    ExecProcess process;
    oPipeStream* in = nullptr;
    iPipeStream* out = nullptr;
    iPipeStream* err = nullptr;
    errstatus status;
};

inline std::string OutputOf(const std::string& command) {
    Piped child(command);
    if (child.status != errOK)
        return errName(errMapError());
    std::string output = child.Output();
    child.process.WaitForProcess();
    return output;
}

inline bool HasChildren() {
    siginfo_t info;
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

#endif
