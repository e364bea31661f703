// SPDX-License-Identifier: MIT
//
// Argument files: the input is the file, beside a second reader made after the page of formats. A
// report that returns leaves the command line alone.
#include <cstring>
#include <iostream>
#include <optional>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <cmdargxp.h>

#include "fuzz/support/require.h"
#include "outside/quillmarsh/abort.h"

namespace {

using Words = std::vector<std::string>;

bool reported = false;

std::string Argument(const std::string& line) {
    const std::string text = line.c_str();
    if (text.empty() || text[0] != '$')
        return text;
    const std::size_t end = std::min(text.find_first_of("\\/| \t", 1), text.size());
    const std::string name = text.substr(1, end - 1);
    const char* const value = name.find('=') == name.npos ? std::getenv(name.c_str()) : nullptr;
    return value != nullptr ? value + text.substr(end) : text;
}

/// The arguments in a file; none of one that has a line which is too long.
std::optional<Words> Read(const std::string& file) {
    Words words;
    std::size_t at = 0;
    for (std::size_t end; (end = file.find('\n', at)) != file.npos; at = end + 1) {
        if (end - at > 65535)
            return std::nullopt;
        words.push_back(Argument(file.substr(at, end - at)));
    }
    return file.size() - at > 65535 ? std::nullopt : std::optional(words);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int file = memfd_create("arguments", MFD_CLOEXEC);
    setenv("A", "a value", 1);
    setenv("EMPTY", "", 1);
    setenv("A=B", "none", 1);
    // So that the limit of a line is within reach: a form feed stands for many letters.
    std::string text;
    for (std::size_t i = 0; i < size; ++i)
        text.append(data[i] == '\f' ? 32767 : 1, static_cast<char>(data[i]));
    Require(ftruncate(file, 0) == 0);
    Require(pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    zelSetAbortHandler([](const char*, const char*, int) { reported = true; });
    std::cerr.setstate(std::ios::failbit); // the report is expected
    reported = false;

    char option[] = "-argfile", first[] = "first", last[] = "last";
    std::string name = "/proc/self/fd/" + std::to_string(file);
    char* line[] = {first, option, name.data(), last};
    int argc = 4;
    char** argv = line;
    ExpandCommandArguments(argc, argv, false);
    const std::optional<Words> wanted = Read(text);
    Require(reported == !wanted);
    if (reported) {
        Require(argc == 4 && argv == line);
        return 0;
    }
    Require(argc == static_cast<int>(wanted->size()) + 2);
    Require(std::strcmp(argv[0], first) == 0 && std::strcmp(argv[argc - 1], last) == 0);
    for (std::size_t i = 0; i < wanted->size(); ++i)
        Require((*wanted)[i] == argv[i + 1]);
    FreeCommandArguments(argc, argv);
    return 0;
}
