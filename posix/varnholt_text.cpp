// SPDX-License-Identifier: MIT
#include "outside/varnholt/text.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "posix/utf8.h"

int Strlen(const char* text) {
    if (text == nullptr)
        return 0;
    // A text that an int cannot count is cut short rather than given a negative length.
    return static_cast<int>(std::min(std::strlen(text), static_cast<std::size_t>(INT_MAX)));
}

bool Getenv(const char* name, const char** value) {
    // No name holds a '=': the C library would find the end of a value behind the start of one.
    const char* found = std::strchr(name, '=') == nullptr ? std::getenv(name) : nullptr;
    if (found == nullptr)
        return false;
    *value = found;
    return true;
}

int mbxWideToNeut(char const* neutral, wchar_t const* wide) {
    char* const start = const_cast<char*>(neutral);
    char* target = start;
    const wchar_t* const end = wide + std::wcslen(wide);
    while (wide < end) {
        if (end - wide >= utf8::wordSize && utf8::IsAsciiWord(wide)) {
            utf8::CopyWord(target, wide);
            target += utf8::wordSize;
            wide += utf8::wordSize;
            continue;
        }
        wchar_t code = *wide++;
        if (utf8::EncodedSize(code) == 0)
            code = utf8::replacement;
        const int bytes = utf8::EncodedSize(code);
        utf8::Encode(target, code, bytes);
        target += bytes;
    }
    *target = 0;
    return static_cast<int>(target - start);
}

int mbxNeutToWide(char const* neutral, wchar_t const* wide) {
    utf8::WideWriter writer{const_cast<wchar_t*>(wide)};
    const char* const end = neutral + std::strlen(neutral);
    while ((neutral = utf8::DecodeRun(neutral, end, writer)) < end) {
        writer.Character(utf8::replacement);
        ++neutral;
    }
    *writer.target = 0;
    return static_cast<int>(writer.target - wide);
}
