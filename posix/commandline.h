// SPDX-License-Identifier: MIT
//
// A command line as the words that a program is started with.
#ifndef PLINTH_POSIX_COMMANDLINE_H
#define PLINTH_POSIX_COMMANDLINE_H

#include <vector>

namespace posix {

/// Splits like a POSIX shell (IEEE 1003.1, 2.2 Quoting), without any expansion: words end at
/// blanks; a backslash takes the next character as it is, and a newline away with itself; nothing
/// is special between single quotes, and between double quotes only a backslash before $, `, ",
/// newline or itself is.
class CommandLine {
public:
    explicit CommandLine(const char* text);

    /// False for an unclosed quote, and where the first word is missing or empty.
    [[nodiscard]] bool NamesAProgram() const { return closed && words[0] && words[0][0] != '\0'; }
    /// The words with a null behind them, for exec.
    [[nodiscard]] char* const* Words() const { return words.data(); }

private:
    std::vector<char> bytes;
    std::vector<char*> words;
    bool closed = true;
};

} // namespace posix

#endif
