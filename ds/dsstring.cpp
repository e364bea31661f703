// SPDX-License-Identifier: MIT
#include "dsstring.h"

#include <algorithm>
#include <cassert>
#include <memory>
#include <ostream>

#include "ds/ownedtext.h"
#include "dsdatcol.h"
#include "outside/quillmarsh/multibyte.h"

namespace {

std::size_t Length(const char* s) {
    return s != nullptr ? std::strlen(s) : 0;
}

/// Copies the bytes of [from, to) and gives the place behind the copy.
char* Put(char* target, const char* from, const char* to) {
    return std::copy(from, to, target);
}

} // namespace

constinit const char OwnedText::empty[1] = {'\0'};

dsBaseString::~dsBaseString() = default;

unsigned int dsBaseString::GetLength() const {
    return static_cast<unsigned int>(Strlen(*this));
}

bool dsBaseString::IsEmpty() const {
    return *static_cast<const char*>(*this) == '\0';
}

std::ostream& operator<<(std::ostream& os, const dsBaseString& s) {
    if (const char* text = s)
        os << text;
    return os;
}

char* dsString::StrEmpty() {
    return const_cast<char*>(OwnedText::empty);
}

char* dsString::StrNew(const char* s) {
    if (s == nullptr)
        return StrEmpty();
    const std::size_t bytes = std::strlen(s) + 1;
    return static_cast<char*>(std::memcpy(new char[bytes], s, bytes));
}

char* dsString::Concatenate(const char* a, const char* b) {
    const std::size_t aLength = Length(a), bLength = Length(b);
    char* joined = new char[aLength + bLength + 1];
    char* end = Put(Put(joined, a, a + aLength), b, b + bLength);
    *end = '\0';
    return joined;
}

void dsString::Cleanup() {
    if (text != StrEmpty())
        delete[] text;
    text = StrEmpty();
}

dsString::dsString() : text(StrEmpty()) {}

dsString::dsString(const char* s) : text(StrNew(s)) {}

dsString::dsString(std::nullptr_t) : text(StrEmpty()) {}

dsString::dsString(const char* a, const char* b)
    : text(a == nullptr && b == nullptr ? StrEmpty() : Concatenate(a, b)) {}

dsString::dsString(const char* s, unsigned int maxLength) : text(StrEmpty()) {
    const std::size_t length = s != nullptr ? strnlen(s, maxLength) : 0;
    if (length == 0)
        return;
    text = new char[length + 1];
    *Put(text, s, s + length) = '\0';
}

dsString::dsString(const wchar_t* w) : text(StrEmpty()) {
    if (w == nullptr || *w == L'\0')
        return;
    constexpr std::size_t countLimit = 0x100000, unconvertible = static_cast<std::size_t>(-1);
    const std::size_t needed = zel_wcstombs(nullptr, w, countLimit);
    if (needed == unconvertible)
        return;
    std::unique_ptr<char[]> converted(new char[needed + 2]);
    if (zel_wcstombs(converted.get(), w, needed + 2) != unconvertible)
        text = converted.release();
}

dsString::~dsString() {
    Cleanup();
}

dsString& dsString::operator=(const char* s) {
    Cleanup();
    text = StrNew(s);
    return *this;
}

dsString& dsString::operator=(const dsString& other) {
    return this == &other ? *this : *this = other.text;
}

dsString& dsString::operator=(std::strstream& stream) {
    dsXArray<char> taken(nullptr);
    char c = '\0';
    do {
        // The end of the stream ends the text like a NUL does.
        const int got = stream.get();
        c = got == std::strstream::traits_type::eof() ? '\0' : static_cast<char>(got);
        taken += c;
    } while (c != '\0');
    return *this = taken.GetDataPtr();
}

dsString& dsString::operator+=(const char* s) {
    if (s == nullptr || *s == '\0')
        return *this;
    char* joined = Concatenate(text, s);
    Cleanup();
    text = joined;
    return *this;
}

dsString& dsString::operator+=(char c) {
    const char one[2] = {c, '\0'};
    return *this += one;
}

dsString operator+(const dsString& left, const char* right) {
    return dsString(static_cast<const char*>(left), right);
}

bool dsString::Replace(unsigned int from, unsigned int to, const char* s) {
    const std::size_t sLength = Length(s);
    if (from == to && sLength == 0)
        return false;
    const auto [low, high] = std::minmax(from, to);
    const std::size_t length = std::strlen(text);
    assert(high <= length);
    char* replaced = new char[length - (high - low) + sLength + 1];
    char* end = Put(Put(replaced, text, text + low), s, s + sLength);
    *Put(end, text + high, text + length) = '\0';
    Cleanup();
    text = replaced;
    return true;
}

int dsString::ReplaceSubStr(const char* find, const char* with, int maxCount) {
    const std::size_t findLength = std::strlen(find), withLength = std::strlen(with);
    assert(findLength != 0);
    const int limit = maxCount > 0 ? maxCount : 1'000'000;
    // Searched once: the first places are kept here, more of them on the heap.
    const char* first[32];
    dsXArray<const char*> more(nullptr);
    int count = 0;
    for (const char* hit = text; count < limit && (hit = std::strstr(hit, find)) != nullptr;
         hit += findLength, ++count) {
        if (count < 32)
            first[count] = hit;
        else
            more += hit;
    }
    if (count == 0)
        return 0;

    const std::size_t hits = static_cast<std::size_t>(count), length = std::strlen(text);
    char* replaced = new char[length - findLength * hits + withLength * hits + 1];
    char* end = replaced;
    const char* rest = text;
    for (int i = 0; i < count; ++i) {
        const char* const hit = i < 32 ? first[i] : more.GetDataPtr()[i - 32];
        end = Put(Put(end, rest, hit), with, with + withLength);
        rest = hit + findLength;
    }
    *Put(end, rest, text + length) = '\0';
    Cleanup();
    text = replaced;
    return count;
}

dscharStr::dscharStr(const char* s) {
    const std::size_t length = static_cast<std::size_t>(Strlen(s));
    buffer = new char[length + 1];
    if (s != nullptr)
        *Put(buffer, s, s + length) = '\0';
}

dscharStr::~dscharStr() {
    delete[] buffer;
}
