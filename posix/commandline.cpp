// SPDX-License-Identifier: MIT
#include "posix/commandline.h"

#include <cstring>

namespace posix {

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n';
}

/// A newline that is taken away: the line goes on.
bool IsContinuation(const char* text) {
    return text[0] == '\\' && text[1] == '\n';
}

} // namespace

CommandLine::CommandLine(const char* text) {
    if (text == nullptr)
        text = "";
    // A word takes no more bytes than it had, and its NUL the place of a blank or of the end.
    bytes.resize(std::strlen(text) + 1);
    char* to = bytes.data();
    for (;;) {
        while (IsBlank(*text) || IsContinuation(text))
            text += IsBlank(*text) ? 1 : 2;
        if (*text == '\0')
            break;
        words.push_back(to);
        char quote = '\0';
        for (; *text != '\0' && (quote != '\0' || !IsBlank(*text)); ++text) {
            if (*text == quote) {
                quote = '\0';
            } else if (quote == '\0' && (*text == '\'' || *text == '"')) {
                quote = *text;
            } else if (quote != '\'' && IsContinuation(text)) {
                ++text;
            } else if (*text == '\\' && text[1] != '\0' &&
                       (quote == '\0' || (quote == '"' && std::strchr("$`\"\\", text[1])))) {
                *to++ = *++text;
            } else {
                *to++ = *text;
            }
        }
        *to++ = '\0';
        closed = closed && quote == '\0';
    }
    words.push_back(nullptr);
}

} // namespace posix
