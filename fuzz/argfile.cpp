// SPDX-License-Identifier: MIT
//
// Argument files: the input is the file. A report that returns leaves the command line alone; an
// expansion has one argument for each line feed.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include <cmdargxp.h>

#include "outside/quillmarsh/abort.h"

namespace {

bool reported = false;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int file = memfd_create("arguments", MFD_CLOEXEC);
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size))
        std::abort();
    zelSetAbortHandler([](const char*, const char*, int) { reported = true; });
    std::cerr.setstate(std::ios::failbit); // the report is expected
    reported = false;

    char option[] = "-argfile";
    std::string name = "/proc/self/fd/" + std::to_string(file);
    char* words[] = {option, name.data()};
    int argc = 2;
    char** argv = words;
    ExpandCommandArguments(argc, argv, false);
    if (reported ? argc != 2 || argv != words : argc != std::count(data, data + size, '\n'))
        std::abort();
    if (!reported)
        FreeCommandArguments(argc, argv);
    return 0;
}
