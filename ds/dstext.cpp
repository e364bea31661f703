// SPDX-License-Identifier: MIT
//
// What goes with strings: numbers as text, delimited lists, the environment, and the standard
// functions.
#include "dsstring.h"

#include <charconv>
#include <climits>
#include <locale>
#include <memory>
#include <type_traits>

namespace {

int BaseOf(ToStringOptions options) {
    return options == ToStringOctal ? 8 : options == ToStringHex ? 16 : 10;
}

template <typename Number>
void NumberToString(Number value, dsString& text, ToStringOptions options) {
    const int base = BaseOf(options);
    // Only a locale of the program's own can group digits or write them in another way.
    if (std::locale() != std::locale::classic()) {
        std::strstream stream;
        if (base != 10)
            stream.setf(base == 8 ? std::ios::oct : std::ios::hex, std::ios::basefield);
        stream << value;
        text = stream;
        return;
    }
    char digits[sizeof(Number) * CHAR_BIT + 1]; // enough for any base; a sign comes with base 10
    const auto end = digits + sizeof digits;
    *(base == 10
          ? std::to_chars(digits, end, value)
          : std::to_chars(digits, end, static_cast<std::make_unsigned_t<Number>>(value), base))
         .ptr = '\0';
    text = digits;
}

} // namespace

void ToString(int value, dsString& text, ToStringOptions options) {
    NumberToString(value, text, options);
}

void ToString(unsigned int value, dsString& text, ToStringOptions options) {
    NumberToString(value, text, options);
}

void dsMkToken(const char* s, dsString& token, char delimiter) {
    token = "";
    if (s == nullptr)
        return;
    const std::unique_ptr<char[]> escaped(new char[std::strlen(s) * 2 + 1]);
    char* end = escaped.get();
    for (; *s != '\0'; ++s) {
        *end++ = *s;
        if (*s == delimiter)
            *end++ = delimiter;
    }
    *end = '\0';
    token = escaped.get();
}

const char* dsGetNextToken(const char* s, dsString& token, char delimiter) {
    token = "";
    if (s == nullptr)
        return nullptr;
    const std::unique_ptr<char[]> taken(new char[std::strlen(s) + 1]);
    char* end = taken.get();
    for (; *s != '\0'; ++s) {
        // A doubled delimiter stands for itself, a single one ends the token.
        if (*s == delimiter && *++s != delimiter)
            break;
        *end++ = *s;
    }
    *end = '\0';
    token = taken.get();
    return *s != '\0' ? s : nullptr;
}

bool Getenv(const char* name, dsString& value) {
    const char* found = nullptr;
    if (!Getenv(name, &found))
        return false;
    value = found;
    return true;
}

char* Strcpy(char* target, const char* source) {
    return std::strcpy(target, source);
}

char* Strcat(char* target, const char* source) {
    return std::strcat(target, source);
}

char* Strchr(const char* s, int c) {
    return const_cast<char*>(std::strchr(s, c));
}

char* Strstr(const char* s, const char* find) {
    return const_cast<char*>(std::strstr(s, find));
}

int Strbytes(const char* s) {
    const int length = Strlen(s);
    return length < INT_MAX ? length + 1 : length;
}
