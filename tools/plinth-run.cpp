// SPDX-License-Identifier: MIT
//
// plinth-run: runs a command with its streams on pipes, a time limit, and a record of how it went.
// plinth-run.1 tells all about it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>

#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include "supervisor.h"

namespace {

constexpr int limitReached = 124;
constexpr int ownFailure = 125;
constexpr int notExecutable = 126;
constexpr int notFound = 127;

constexpr char help[] =
    "usage: plinth-run [OPTION]... [--] COMMAND [ARGUMENT]...\n"
    "\n"
    "Runs a command, moves its streams, and tells at the end how it went.\n"
    "\n"
    "  -t, --timeout SEC  ends the command, and all that it has started, after so many seconds\n"
    "  -g, --grace SEC    the time between asking (SIGINT) and ending (SIGKILL); 5 by default\n"
    "  -i, --input FILE   what the command reads; else the standard input\n"
    "  -o, --output FILE  where its output goes; else to the standard output\n"
    "  -e, --errors FILE  where its errors go; else to the standard error\n"
    "  -q, --quiet        does not tell how it went\n"
    "  -h, --help         this text\n"
    "  -V, --version      the version\n"
    "\n"
    "If a pipe stays open when the command has ended, the processes that it has left behind are\n"
    "named, with what each holds.\n"
    "\n"
    "The status is that of the command, 128 + N if signal N ended it, 124 if the time limit was\n"
    "reached, 125 if plinth-run fails, 126 if the command cannot be run, 127 if there is none.\n";

int Fail(int code, const std::string& what) {
    std::cerr << "plinth-run: " << what << '\n';
    return code;
}

int Print(const std::string& text) {
    std::cout << text << std::flush;
    return std::cout ? EXIT_SUCCESS : Fail(ownFailure, "cannot write");
}

std::string SignalName(int signal) {
    const char* const name = sigabbrev_np(signal);
    return "signal " + std::to_string(signal) +
           (name != nullptr ? std::string(" (SIG") + name + ')' : "");
}

/// What is told at the end.
std::string Told(const tools::Record& record) {
    char time[64];
    std::snprintf(time, sizeof time, "%.3f s", record.time.count());
    std::string told;
    if (record.limitReached)
        told += "time limit reached, ";
    else if (record.stoppedBy != 0)
        told += "stopped by " + SignalName(record.stoppedBy) + ", ";
    told += !record.ended        ? "does not end"
            : record.signal != 0 ? "ended by " + SignalName(record.signal)
                                 : "exit code " + std::to_string(record.code);
    told += std::string(", ") + time + ", ";
    told += record.in ? std::to_string(*record.in) + " bytes in, " : "";
    return told + std::to_string(record.out) + " bytes out, " + std::to_string(record.errors) +
           " bytes of errors";
}

int Status(const tools::Record& record) {
    if (record.limitReached)
        return limitReached;
    return record.stoppedBy != 0 ? 128 + record.stoppedBy : record.ended ? record.code : ownFailure;
}

/// A number of seconds, or -1.
double Seconds(const char* text) {
    char* end = nullptr;
    const double seconds = std::strtod(text, &end);
    return *text != '\0' && *end == '\0' && seconds >= 0 && seconds < 1e9 ? seconds : -1;
}

int Run(int argc, char** argv) {
    const option options[] = {{"timeout", required_argument, nullptr, 't'},
                              {"grace", required_argument, nullptr, 'g'},
                              {"input", required_argument, nullptr, 'i'},
                              {"output", required_argument, nullptr, 'o'},
                              {"errors", required_argument, nullptr, 'e'},
                              {"quiet", no_argument, nullptr, 'q'},
                              {"help", no_argument, nullptr, 'h'},
                              {"version", no_argument, nullptr, 'V'},
                              {nullptr, 0, nullptr, 0}};
    tools::Order order;
    bool quiet = false;
    // The + leaves the options of the command to the command.
    for (int option;
         (option = getopt_long(argc, argv, "+t:g:i:o:e:qhV", options, nullptr)) != -1;) {
        switch (option) {
        case 't':
        case 'g': {
            const double seconds = Seconds(optarg);
            if (seconds < 0 || (option == 't' && seconds == 0))
                return Fail(ownFailure, "no time: " + std::string(optarg));
            if (option == 't')
                order.limit.emplace(seconds);
            else
                order.grace = std::chrono::duration<double>(seconds);
            break;
        }
        case 'i':
            order.input = optarg;
            break;
        case 'o':
            order.output = optarg;
            break;
        case 'e':
            order.errors = optarg;
            break;
        case 'q':
            quiet = true;
            break;
        case 'h':
            return Print(help);
        case 'V':
            return Print("plinth-run " PLINTH_VERSION "\n");
        default:
            return Fail(ownFailure, "--help tells more");
        }
    }
    order.command.assign(argv + optind, argv + argc);
    if (order.command.empty())
        return Fail(ownFailure, "COMMAND expected; --help tells more");
    const tools::Record record = tools::Supervisor(order).Run();
    if (record.launch != errOK)
        return Fail(record.launch == errNotFound ? notFound : notExecutable,
                    order.command[0] + ": " + errName(record.launch));
    if (!quiet && (record.ended || record.failedFile.empty()))
        std::cerr << "plinth-run: " << Told(record) << '\n';
    return record.failedFile.empty() ? Status(record)
                                     : Fail(ownFailure, record.failedFile + " cannot be used");
}

} // namespace

int main(int argc, char** argv) {
    // A standard stream that is closed must not become one of the pipes.
    int descriptor;
    while ((descriptor = open("/dev/null", O_RDWR)) >= 0 && descriptor <= STDERR_FILENO) {
    }
    close(descriptor);
    std::ios::sync_with_stdio(false);
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {
        return Fail(ownFailure, error.what());
    }
}
