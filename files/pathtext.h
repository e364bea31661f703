// SPDX-License-Identifier: MIT
//
// What the path classes and the file operations share about the text of paths.
#ifndef PLINTH_FILES_PATHTEXT_H
#define PLINTH_FILES_PATHTEXT_H

#include <cstdlib>
#include <cstring>

#include "outside/quillmarsh/multibyte.h"
#include "pfupath.h"

namespace files {

constexpr char neutralSeparator = '|';
constexpr char nativeSeparator = '/';

constexpr bool IsSeparator(char c) {
    return c == '|' || c == '\\' || c == '/';
}

/// The bytes of the character at `position`, which is not the terminator. A byte that begins no
/// character of the locale is stepped over alone. Every encoding that a locale can have has the
/// characters below 0x80 to itself where a character begins.
inline int CharacterBytes(const char* position) {
    if (static_cast<unsigned char>(*position) < 0x80)
        return 1;
    const int bytes = zel_mblen(position, MB_CUR_MAX);
    return bytes > 0 ? bytes : 1;
}

/// `length` bytes of `source` become the text of `target`; if they do not fit, it becomes empty,
/// and the byte behind the terminator of the empty text tells of it. `source` may lie in `target`.
/// (Where it need not, memcpy would still be the slower one: knowing that there is little to copy,
/// the compiler puts an instruction in its place that takes longer to begin than most copies.)
inline void SetText(char (&target)[pfuPathSize], const char* source, std::size_t length) {
    const bool overlong = length >= pfuPathSize;
    if (overlong)
        length = 0;
    if (length != 0)
        std::memmove(target, source, length);
    else
        target[1] = overlong ? '!' : '\0';
    target[length] = '\0';
}

inline void SetText(char (&target)[pfuPathSize], const char* source) {
    SetText(target, source, source != nullptr ? std::strlen(source) : 0);
}

/// True for a text that is its own native form: ASCII that holds no separator but the native one.
/// (False says nothing.)
bool IsPlainNative(const char* text, std::size_t length);

/// True if a path of `length` bytes can take one more element of `added` bytes.
constexpr bool CanJoin(std::size_t length, std::size_t added) {
    return length + added + 2 < pfuPathSize;
}

} // namespace files

#endif
