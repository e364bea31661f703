// SPDX-License-Identifier: MIT
//
// ISO-8859-1, in which each byte is the character of that number, beside UTF-8.
#ifndef PLINTH_POSIX_LATIN1_H
#define PLINTH_POSIX_LATIN1_H

#include <algorithm>
#include <cstddef>

#include "posix/utf8.h"

namespace latin1 {

/// The bytes that the UTF-8 form of [text, end) has.
inline std::size_t SizeInUtf8(const char* text, const char* end) {
    const auto high = std::count_if(text, end, [](char byte) { return (byte & 0x80) != 0; });
    return static_cast<std::size_t>(end - text + high);
}

/// Writes the UTF-8 form of [text, end) and gives the place behind it, where it may have written
/// one byte more.
inline char* ToUtf8(char* target, const char* text, const char* end) {
    while (text < end) {
        if (end - text >= utf8::wordSize && utf8::AsciiPrefix(text) == utf8::wordSize) {
            utf8::CopyWord(target, text);
            text += utf8::wordSize;
            target += utf8::wordSize;
            continue;
        }
        // A text of this encoding has letters of both kinds side by side: no branch tells which.
        for (const char* const next = std::min(end, text + utf8::wordSize); text < next; ++text) {
            const auto code = static_cast<unsigned char>(*text);
            const int high = code >> 7;
            target[0] = static_cast<char>(high != 0 ? 0xC0 | code >> 6 : code);
            target[1] = static_cast<char>(0x80 | (code & 0x3F));
            target += 1 + high;
        }
    }
    return target;
}

/// Writes what [text, end), with a NUL behind it, is the UTF-8 form of, and gives the place behind
/// that; null where it is none.
inline char* FromUtf8(char* target, const char* text, const char* end) {
    while (text < end) {
        if (end - text >= utf8::wordSize) {
            // What is not ASCII of the eight is written over.
            const int count = utf8::AsciiPrefix(text);
            utf8::CopyWord(target, text);
            text += count;
            target += count;
            if (count == utf8::wordSize)
                continue;
        }
        do {
            wchar_t wide;
            const int bytes = utf8::Decode(text, wide);
            if (bytes == 0 || wide > 0xFF)
                return nullptr;
            *target++ = static_cast<char>(wide);
            text += bytes;
        } while (text < end && (*text & 0x80) != 0);
    }
    return target;
}

} // namespace latin1

#endif
