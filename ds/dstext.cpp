// SPDX-License-Identifier: MIT
//
// What goes with strings: numbers as text, delimited lists, the environment, and the standard
// functions.
#include "dsstring.h"

#include <bit>
#include <charconv>
#include <climits>
#include <locale>
#include <memory>
#include <utility>

#include "ds/ownedtext.h"

namespace {

/// Whether numbers are written the plain way: only a locale of the program's own can group digits
/// or write them in another way.
bool IsGlobalLocalePlain() {
    static const std::locale& plain = std::locale::classic();
    const std::locale global;
    // A locale refers to what it consists of: the same bytes are the same locale, and to ask so
    // takes no call.
    return std::memcmp(static_cast<const void*>(&global), static_cast<const void*>(&plain),
                       sizeof global) == 0 ||
           global == plain;
}

/// The digits that `value` has in base 8, 10 or 16.
std::size_t CountDigits(unsigned int value, int base) {
    value |= 1; // 0 has a digit as well
    const auto bits = static_cast<unsigned int>(std::bit_width(value));
    if (base != 10)
        return base == 8 ? (bits + 2) / 3 : (bits + 3) / 4;
    static constexpr unsigned int powers[] = {
        1, 10, 100, 1'000, 10'000, 100'000, 1'000'000, 10'000'000, 100'000'000, 1'000'000'000};
    // What the logarithm to base 2 tells about that to base 10 is one short, or right.
    const unsigned int least = bits * 1233 / 4096;
    return least + (value >= powers[least] ? 1 : 0);
}

template <typename Number>
void NumberToString(Number value, dsString& text, ToStringOptions options) {
    const int base = options == ToStringOctal ? 8 : options == ToStringHex ? 16 : 10;
    if (!IsGlobalLocalePlain()) {
        std::strstream stream;
        if (base != 10)
            stream.setf(base == 8 ? std::ios::oct : std::ios::hex, std::ios::basefield);
        stream << value;
        text = stream;
        return;
    }
    // Written where it will stay.
    unsigned int magnitude = static_cast<unsigned int>(value);
    const bool hasSign = base == 10 && value < Number{};
    if (hasSign)
        magnitude = -magnitude;
    const std::size_t size = CountDigits(magnitude, base) + hasSign;
    auto digits = std::make_unique_for_overwrite<char[]>(size + 1);
    digits[0] = '-';
    digits[size] = '\0';
    std::to_chars(&digits[hasSign], &digits[size], magnitude, base);
    OwnedText::Adopt(text, std::move(digits));
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
