// SPDX-License-Identifier: MIT
//
// What examples with child processes share.
#ifndef PLINTH_EXAMPLES_CHILDREN_H
#define PLINTH_EXAMPLES_CHILDREN_H

#include <string>

#include <execproc.h>

struct PipeDeleter {
    template <typename Stream>
    void operator()(Stream* stream) const {
        DeletePipe(stream);
    }
};

/// A word of a command line that stands for exactly this text.
inline std::string Quoted(const char* text) {
    std::string word = "'";
    for (; *text != '\0'; ++text)
        word += *text == '\'' ? "'\\''" : std::string(1, *text);
    return word + "'";
}

#endif
