// SPDX-License-Identifier: MIT
//
// filter_run INPUT OUTPUT ERRORS COMMAND [ARGUMENT...]: runs a command with its input fed from one
// file and its output and errors collected to two others, in one thread. None of the three streams
// can hold up the others, so no amount of data in any order can make the two processes wait for
// each other. Says at the end how it went and passes the command's exit code on; 125 if a file
// fails, 127 if the command cannot be started.
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include <unistd.h>

#include <execproc.h>

#include "../pump.h"
#include "../terminal.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int fileFailed = 125;
constexpr int notStarted = 127;

int Fail(int code, const std::string& what) {
    std::cerr << "filter_run: " << what << '\n';
    return code;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 5)
        return Fail(fileFailed, "INPUT OUTPUT ERRORS COMMAND [ARGUMENT...]");
    std::ifstream input(argv[1], std::ios::binary);
    std::ofstream output(argv[2], std::ios::binary);
    std::ofstream errors(argv[3], std::ios::binary);
    if (!input || !output || !errors)
        return Fail(fileFailed, "cannot open " + std::string(argv[!input ? 1 : !output ? 2 : 3]));

    const Clock::time_point start = Clock::now();
    const auto milliseconds = [start] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    };
    ExecProcess process(CommandLine({argv + 4, argv + argc}).c_str(), 7);
    oPipeStream* toChild = nullptr;
    iPipeStream* fromChild = nullptr;
    iPipeStream* errorsFromChild = nullptr;
    if (OpenPipeWithChildProc(&toChild, &fromChild, &errorsFromChild, &process) != errOK)
        return Fail(notStarted, std::string(argv[4]) + ": " + errName(errMapError()));
    Feed feed(input, toChild);
    Collection out(fromChild, output);
    Collection err(errorsFromChild, errors);
    std::unique_ptr<zelEvent> exit(process.GetExitEvent());

    const bool terminal = IsTerminal(STDERR_FILENO);
    for (auto shown = milliseconds(); feed.Event() || out.Event() || err.Event() || exit;) {
        zelEvent* const events[] = {feed.Event(), out.Event(), err.Event(), exit.get()};
        switch (zelEvent::WaitAny(events, 4, terminal ? 100 : -1)) {
        case 0:
            feed.Move();
            break;
        case 1:
            out.Move();
            break;
        case 2:
            err.Move();
            break;
        case 3:
            exit.reset();
            break;
        default:
            break;
        }
        if (!output || !errors || input.bad()) {
            process.Kill();
            process.WaitForProcess();
            return Fail(fileFailed, "a file cannot be read or written");
        }
        if (terminal && milliseconds() - shown >= 100) {
            shown = milliseconds();
            std::cerr << '\r' << feed.Bytes() << " in, " << out.Bytes() << " out, " << err.Bytes()
                      << " of errors" << std::flush;
        }
    }
    if (terminal)
        std::cerr << "\r\033[K";

    const long code = process.WaitForProcess();
    output.close();
    errors.close();
    if (!output || !errors)
        return Fail(fileFailed, "a file cannot be written");
    std::cout << "exit code " << code << ", " << feed.Bytes() << " bytes in, " << out.Bytes()
              << " out, " << err.Bytes() << " of errors, " << milliseconds() << " ms\n";
    return static_cast<int>(code);
}
