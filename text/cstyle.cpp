// SPDX-License-Identifier: MIT
#include "mbconv.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <ostream>

namespace {

bool IsPlain(char byte) {
    return byte >= 0x20 && byte <= 0x7E && byte != '\\' && byte != '"';
}

/// Writes `byte` in octal. The stream's own formatting would let its other settings (a base
/// prefix, an adjustment, digit groups) into a text that has to be read again.
void WriteOctal(char byte, std::ostream& out) {
    const auto number = static_cast<std::uint32_t>(static_cast<signed char>(byte));
    char digits[16] = {'\\', '0', '0', '0'};
    char* const first = digits + (number < 010 ? 3 : number < 0100 ? 2 : 1);
    out.write(digits, std::to_chars(first, digits + sizeof digits, number, 8).ptr - digits);
    out.setf(std::ios_base::dec, std::ios_base::basefield);
    out.fill('0');
}

/// The value of a digit in any base up to 16; 16 for what is none.
unsigned DigitValue(char byte) {
    if (byte >= '0' && byte <= '9')
        return static_cast<unsigned>(byte - '0');
    const char lower = static_cast<char>(byte | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned>(lower - 'a') + 10 : 16;
}

/// Reads all digits from `text` on, and moves it behind them.
char TakeNumber(const char*& text, unsigned base) {
    std::uint32_t number = 0;
    for (unsigned digit; (digit = DigitValue(*text)) < base; ++text)
        number = number * base + digit;
    return static_cast<char>(number & 0xFF);
}

/// What the byte behind a backslash stands for, unless it is a number.
char Meaning(char kind) {
    switch (kind) {
    case 'a':
        return '\a';
    case 'b':
        return '\b';
    case 'f':
        return '\f';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    case 'v':
        return '\v';
    default:
        return kind;
    }
}

} // namespace

void NativeStringToCStyle(char const* text, std::basic_ostream<char>& out) {
    out.put('"');
    for (;;) {
        const char* const plain = text;
        while (IsPlain(*text))
            ++text;
        if (text != plain)
            out.write(plain, text - plain);
        if (*text == 0)
            break;
        if (*text == '\\' || *text == '"')
            out.put('\\').put(*text);
        else
            WriteOctal(*text, out);
        ++text;
    }
    out.put('"');
}

void CStyleStringToNative(char const* text, bool noQuotes, std::basic_ostream<char>& out) {
    const std::size_t length = std::strlen(text);
    const char* end = text + length;
    if (!noQuotes) {
        end = length < 2 ? text : end - 1;
        ++text;
    }
    while (text < end) {
        const char* const plain = text;
        while (text < end && *text != '\\')
            ++text;
        if (text != plain)
            out.write(plain, text - plain);
        if (text == end)
            break;
        // An escape may take the closing delimiter, or the terminator if it is cut off, but it
        // never passes the terminator: that is neither a digit nor a letter.
        const char kind = *++text;
        if (DigitValue(kind) < 8) {
            out.put(TakeNumber(text, 8));
            continue;
        }
        ++text;
        if (kind == '"')
            out.put('\\');
        out.put(kind == 'x' ? TakeNumber(text, 16) : Meaning(kind));
    }
    out.put(0);
}
