// SPDX-License-Identifier: MIT
//
// Copies of text, wide forms of native text, and wildcards.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

#include "outside/quillmarsh/multibyte.h"
#include "outside/varnholt/text.h"

char* Strnew__(const char* text) {
    if (text == nullptr)
        return nullptr;
    const std::size_t size = std::strlen(text) + 1;
    return static_cast<char*>(std::memcpy(operator new(size), text, size));
}

unsigned int Strtoxstr(wchar_t* target, const char* text, unsigned int limit) {
    constexpr wchar_t strayByte = 0xDC00;
    unsigned int count = 0;
    for (; count < limit && *text != '\0'; ++count) {
        const unsigned char byte = static_cast<unsigned char>(*text);
        int bytes = 1;
        target[count] = byte;
        if (byte >= 0x80 && (bytes = zel_mbtowc(&target[count], text, MB_CUR_MAX)) < 1) {
            target[count] = strayByte + byte;
            bytes = 1;
        }
        text += bytes;
    }
    target[count] = L'\0';
    return count;
}

wchar_t* XStrnew(const char* text) {
    if (text == nullptr)
        return nullptr;
    const std::size_t length = std::strlen(text);
    if (length >= UINT_MAX)
        throw std::bad_alloc();
    wchar_t* const wide = static_cast<wchar_t*>(operator new((length + 1) * sizeof(wchar_t)));
    Strtoxstr(wide, text, static_cast<unsigned int>(length));
    return wide;
}

bool Strmatch(const wchar_t* name, const wchar_t* pattern) {
    // If the text between two `*` matches at its first place, a later place can never help: so only
    // the last `*` passed is ever gone back to.
    const wchar_t* star = nullptr;
    const wchar_t* resume = nullptr;
    while (*name != L'\0') {
        if (*pattern == L'*') {
            star = ++pattern;
            resume = name;
        } else if (*pattern == L'?' || *pattern == *name) {
            ++pattern;
            ++name;
        } else if (star != nullptr) {
            pattern = star;
            name = ++resume;
        } else {
            return false;
        }
    }
    while (*pattern == L'*')
        ++pattern;
    return *pattern == L'\0';
}
