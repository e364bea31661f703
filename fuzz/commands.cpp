// SPDX-License-Identifier: MIT
//
// Command lines: the input as a line, beside a second splitter made of states; and the input as
// words, each up to a NUL, which must come back from a line that quotes them in one of three ways.
#include "posix/commandline.h"

#include <cstring>
#include <optional>
#include <vector>

#include "fuzz/support/require.h"

namespace {

using Words = std::vector<std::string>;

/// The words of a line; none for a line that ends inside a quote or names no program.
std::optional<Words> Split(const std::string& line) {
    enum { Between, Bare, Single, Double } state = Between;
    Words words;
    const auto take = [&](char c) {
        if (state == Between) {
            words.emplace_back();
            state = Bare;
        }
        words.back() += c;
    };
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char c = line[at], next = at + 1 < line.size() ? line[at + 1] : '\0';
        const bool escapes = state == Double
                                 ? std::string("$`\"\\\n").find(next) != std::string::npos
                                 : state != Single;
        if (c == '\\' && next != '\0' && escapes) {
            ++at;
            if (next != '\n')
                take(next);
        } else if (state == Single || state == Double) {
            if (c == (state == Single ? '\'' : '"'))
                state = Bare;
            else
                take(c);
        } else if (c == ' ' || c == '\t' || c == '\n') {
            state = Between;
        } else if (c == '\'' || c == '"') {
            if (state == Between)
                words.emplace_back();
            state = c == '\'' ? Single : Double;
        } else {
            take(c);
        }
    }
    if (state == Single || state == Double || words.empty() || words.front().empty())
        return std::nullopt;
    return words;
}

std::optional<Words> Taken(const std::string& line) {
    const posix::CommandLine taken(line.c_str());
    if (!taken.NamesAProgram())
        return std::nullopt;
    Words words;
    for (char* const* word = taken.Words(); *word != nullptr; ++word)
        words.emplace_back(*word);
    return words;
}

std::string Quoted(const std::string& word, unsigned way) {
    std::string quoted;
    for (const char c : word) {
        if (way == 0)
            quoted += c == '\'' ? "'\\''" : std::string(1, c);
        else if (way == 1)
            quoted += (std::strchr("$`\"\\", c) != nullptr ? "\\" : "") + std::string(1, c);
        else // a newline cannot be escaped, it would be taken away
            quoted += c == '\n' ? "'\n'" : std::string("\\") + c;
    }
    const char* const quote = way == 0 ? "'" : way == 1 || word.empty() ? "\"" : "";
    return quote + quoted + quote;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::string line = input.Text();
    Require(Taken(line) == Split(line));

    Words words{"program" + line};
    std::string quoted = Quoted(words[0], static_cast<unsigned>(size) % 3);
    while (!input.IsEmpty()) {
        const unsigned choice = input.Byte();
        words.push_back(input.Text());
        quoted += std::string(1 + choice / 3 % 4, " \t\n "[choice / 12 % 4]) +
                  Quoted(words.back(), choice % 3);
    }
    Require(Taken(quoted) == words);
    return 0;
}
