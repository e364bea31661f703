// SPDX-License-Identifier: MIT
#include "pfupath.h"

#include <cctype>
#include <cstdint>

#include "files/pathtext.h"
#include "outside/varnholt/files.h"

using files::IsSeparator;

namespace {

const char* FirstSeparator(const char* text) {
    while (*text != '\0' && !IsSeparator(*text))
        ++text;
    return *text != '\0' ? text : nullptr;
}

const char* LastSeparator(const char* text) {
    const char* last = nullptr;
    for (; *text != '\0'; ++text)
        if (IsSeparator(*text))
            last = text;
    return last;
}

// There are encodings in which the last byte of a character may have the code of the neutral
// separator. In these, a byte that began no character can become the first half of one when that
// separator is put behind it. The native one stands there instead: it is the half of none.

void ReplaceSeparators(char* position, char separator) {
    const char* before = position;
    while (*position != '\0') {
        if (IsSeparator(*position)) {
            *position = separator;
            if (before != position && before + files::CharacterBytes(before) != position)
                *position = files::nativeSeparator;
        }
        before = position;
        position += files::CharacterBytes(position);
    }
}

/// True if a character begins at the last byte.
bool EndsInByte(const char* text, std::size_t length) {
    const char* position = text;
    while (position < text + length - 1)
        position += files::CharacterBytes(position);
    return position == text + length - 1;
}

bool EndsNeutral(const char* text, std::size_t length) {
    return text[length - 1] == files::neutralSeparator && EndsInByte(text, length);
}

/// Writes the separator behind the `length` bytes of a text.
void AppendSeparator(char* text, std::size_t length) {
    text[length] = files::neutralSeparator;
    if (files::CharacterBytes(text + length - 1) != 1 && EndsInByte(text, length))
        text[length] = files::nativeSeparator;
}

} // namespace

bool files::IsPlainNative(const char* text, std::size_t length) {
    // The two other separators differ in one bit. A byte that is zero behind the comparison, or
    // is no ASCII, leaves the highest bit of a byte.
    using Word = std::uint64_t;
    constexpr Word each = ~Word(0) / 0xFF;
    static_assert(('|' & 0xDF) == '\\');
    Word found = 0;
    const auto look = [&](Word bytes) {
        const Word difference = (bytes & each * 0xDF) ^ each * '\\';
        found |= ((difference - each) & ~difference) | bytes;
    };
    if (length < sizeof(Word)) {
        for (std::size_t i = 0; i < length; ++i)
            look(static_cast<unsigned char>(text[i]));
    } else {
        Word bytes; // the last ones overlap those in front of them
        for (std::size_t i = 0; i < length - sizeof bytes; i += sizeof bytes) {
            std::memcpy(&bytes, text + i, sizeof bytes);
            look(bytes);
        }
        std::memcpy(&bytes, text + length - sizeof bytes, sizeof bytes);
        look(bytes);
    }
    return (found & each * 0x80) == 0;
}

bool issep(char* position) {
    return IsSeparator(*position);
}

bool IsUnixStyleAbsPath(const char* text) {
    return text[0] == '/' || text[0] == '|';
}

bool IsWinStyleAbsPath(const char* text) {
    return std::isalpha(static_cast<unsigned char>(text[0])) != 0 && text[1] == ':' &&
           (text[2] == '|' || text[2] == '\\');
}

bool pfuIsStringPathAbsolute(const char* text) {
    return IsUnixStyleAbsPath(text) || IsWinStyleAbsPath(text);
}

pfuDirEntry& pfuDirEntry::operator=(const char* source) {
    files::SetText(text, source);
    return *this;
}

pfuDirEntry& pfuDirEntry::operator+=(const char* tail) {
    const std::size_t length = std::strlen(text);
    const std::size_t added = tail != nullptr ? std::strlen(tail) : 0;
    if (added != 0 && length + added < pfuPathSize) {
        std::memmove(text + length, tail, added);
        text[length + added] = '\0';
    }
    return *this;
}

pfuDirPath::pfuDirPath(const char* source) {
    files::SetText(text, source);
}

pfuDirPath::pfuDirPath(const pfuDirPath& base, const pfuDirPath& rest) : pfuDirPath(base) {
    Join(rest);
}

pfuDirPath::pfuDirPath(const pfuDirPath& base, const pfuDirEntry& rest) : pfuDirPath(base) {
    Join(rest);
}

pfuDirPath& pfuDirPath::operator=(const char* source) {
    files::SetText(text, source);
    return *this;
}

pfuDirPath& pfuDirPath::operator+=(const pfuDirPath& rest) {
    return Join(rest);
}

pfuDirPath& pfuDirPath::operator+=(const pfuDirEntry& rest) {
    return Join(rest);
}

pfuDirPath& pfuDirPath::Join(const char* rest) {
    std::size_t length = std::strlen(text);
    const std::size_t added = std::strlen(rest);
    if (added == 0 || IsOverlong())
        return *this;
    if (length == 0) {
        files::SetText(text, rest, added);
        return *this;
    }
    if (!files::CanJoin(length, added))
        return *this;
    // `rest` may be this very text: it moves by its length before anything is written into it.
    const std::size_t gap = EndsNeutral(text, length) ? 0 : 1;
    std::memmove(text + length + gap, rest, added);
    text[length + gap + added] = '\0';
    if (gap != 0)
        AppendSeparator(text, length);
    return *this;
}

const char* pfuDirPath::GetRelPathStart() const {
    if (IsUnixStyleAbsPath(text))
        return text + 1;
    return IsWinStyleAbsPath(text) ? text + 3 : text;
}

bool pfuDirPath::GetHead(pfuDirEntry& head) const {
    if (IsEmpty())
        return false;
    std::size_t length = std::strlen(text);
    if (const char* separator = FirstSeparator(text))
        length =
            static_cast<std::size_t>(separator - text) + (pfuIsStringPathAbsolute(text) ? 1 : 0);
    char first[pfuPathSize];
    files::SetText(first, text, length);
    head = first;
    return true;
}

bool pfuDirPath::GetTail(pfuDirPath& tail) const {
    if (IsEmpty())
        return false;
    if (pfuIsStringPathAbsolute(text)) {
        tail = GetRelPathStart();
    } else {
        const char* separator = FirstSeparator(text);
        tail = separator != nullptr ? separator + 1 : "";
    }
    return true;
}

bool pfuDirPath::GetHead(pfuDirPath& head) const {
    if (IsEmpty())
        return false;
    const char* start = GetRelPathStart();
    const char* separator = LastSeparator(start);
    const char* end = separator != nullptr ? separator : start;
    files::SetText(head.text, text, static_cast<std::size_t>(end - text));
    return true;
}

bool pfuDirPath::GetTail(pfuDirEntry& tail) const {
    if (IsEmpty())
        return false;
    const char* separator = LastSeparator(text);
    tail = separator != nullptr ? separator + 1 : text;
    return true;
}

void pfuDirPath::GetHomeDir() {
    pfuOSPath native;
    native.GetHomeDir();
    native.ToNeutral(*this);
}

void pfuDirPath::GetCurrentDir() {
    pfuOSPath native;
    native.GetCurrentDir();
    native.ToNeutral(*this);
}

pfuOSPath::pfuOSPath(const char* source) {
    const std::size_t length = source != nullptr ? std::strlen(source) : 0;
    files::SetText(text, source, length);
    if (length < pfuPathSize && !files::IsPlainNative(text, length))
        ReplaceSeparators(text, files::nativeSeparator);
}

void pfuOSPath::ToNeutral(pfuDirPath& path) const {
    char neutral[pfuPathSize];
    files::SetText(neutral, text);
    ReplaceSeparators(neutral, files::neutralSeparator);
    path = neutral;
}

void pfuOSPath::AddWildcard() {
    const std::size_t length = std::strlen(text);
    const bool separated = length != 0 && text[length - 1] == files::nativeSeparator;
    if (length + (separated ? 1 : 2) < pfuPathSize)
        std::strcpy(text + length, separated ? "*" : "/*");
}

void pfuOSPath::TrimTrailSeps() {
    const std::size_t length = std::strlen(text);
    if (length == 0 || !IsSeparator(text[length - 1]))
        return;
    char* position = text;
    if (pfuIsStringPathAbsolute(text)) {
        while (*position != '\0' && !IsSeparator(*position))
            position += files::CharacterBytes(position);
        while (IsSeparator(*position))
            ++position;
    }
    char* trailing = nullptr;
    for (; *position != '\0'; position += files::CharacterBytes(position)) {
        if (!IsSeparator(*position))
            trailing = nullptr;
        else if (trailing == nullptr)
            trailing = position;
    }
    if (trailing != nullptr)
        *trailing = '\0';
}

void pfuOSPath::GetHomeDir() {
    char home[pfuPathSize];
    const unsigned int length = uGetEnvironmentVariable("HOME", home, sizeof home);
    if (length > 0 && length < sizeof home)
        files::SetText(text, home);
    else
        GetCurrentDir();
}

void pfuOSPath::GetCurrentDir() {
    uGetCurrentDirectory(sizeof text, text);
}
