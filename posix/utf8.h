// SPDX-License-Identifier: MIT
//
// UTF-8 (RFC 3629), strict: no overlong form, no surrogate, nothing above U+10FFFF. It is the
// neutral encoding, and the native one wherever the locale says so. Nothing here looks at a
// locale.
//
// Plain ASCII is the common case and is taken a word at a time.
#ifndef PLINTH_POSIX_UTF8_H
#define PLINTH_POSIX_UTF8_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace utf8 {

/// What stands for something that is no character.
inline constexpr wchar_t replacement = 0xFFFD;

/// Characters that are tested and moved at once while they are ASCII.
inline constexpr int wordSize = 8;

/// The bit of each byte of a word that ASCII does not have.
inline constexpr std::uint64_t highBits = 0x8080808080808080;

/// How many of the 8 bytes at `text` are ASCII before the first that is not.
inline int AsciiPrefix(const char* text) {
    std::uint64_t word;
    std::memcpy(&word, text, sizeof word);
    word &= highBits;
    const bool firstIsLow = std::endian::native == std::endian::little;
    return (firstIsLow ? std::countr_zero(word) : std::countl_zero(word)) / 8;
}

inline bool IsAsciiWord(const wchar_t* text) {
    std::uint32_t any = 0;
    for (int i = 0; i < wordSize; ++i)
        any |= static_cast<std::uint32_t>(text[i]);
    return any < 0x80;
}

/// Moves 8 characters, whatever the type on either side. The two do not overlap: only a compiler
/// that knows it makes vector code of this.
template <typename To, typename From>
inline void CopyWord(To* __restrict target, const From* __restrict text) {
    for (int i = 0; i < wordSize; ++i)
        target[i] = static_cast<To>(text[i]);
}

/// Decodes the character at `text`: its bytes, 1 to 4, or 0 where none begins. A byte is read only
/// when those before it are right, so that a text may end in a NUL anywhere. A NUL is a character
/// of one byte.
inline int Decode(const char* text, wchar_t& wide) {
    const auto at = [text](int i) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(text[i]));
    };
    const auto follows = [&at](int i) { return (at(i) & 0xC0) == 0x80; };
    const std::uint32_t lead = at(0);
    if (lead < 0x80) {
        wide = static_cast<wchar_t>(lead);
        return 1;
    }
    if (lead < 0xE0) {
        if (lead < 0xC2 || !follows(1))
            return 0;
        wide = static_cast<wchar_t>((lead & 0x1F) << 6 | (at(1) & 0x3F));
        return 2;
    }
    if (lead < 0xF0) {
        if (!follows(1) || !follows(2))
            return 0;
        const std::uint32_t code = (lead & 0x0F) << 12 | (at(1) & 0x3F) << 6 | (at(2) & 0x3F);
        wide = static_cast<wchar_t>(code);
        return code >= 0x800 && (code & 0xF800) != 0xD800 ? 3 : 0;
    }
    if (lead > 0xF4 || !follows(1) || !follows(2) || !follows(3))
        return 0;
    const std::uint32_t code =
        (lead & 0x07) << 18 | (at(1) & 0x3F) << 12 | (at(2) & 0x3F) << 6 | (at(3) & 0x3F);
    wide = static_cast<wchar_t>(code);
    return code >= 0x10000 && code <= 0x10FFFF ? 4 : 0;
}

/// Decodes the characters that begin in [text, end), and tells where it stopped: at a place where
/// none begins, or at or behind `end`. What is found goes to `sink`, either as
/// `sink.Ascii(text, count)`, the first `count` of 8 readable bytes, or as `sink.Character(wide)`.
///
/// Requires: a NUL stands at `end` or somewhere behind it.
template <typename Sink>
inline const char* DecodeRun(const char* text, const char* end, Sink& sink) {
    while (text < end) {
        if (end - text >= wordSize) {
            const int count = AsciiPrefix(text);
            sink.Ascii(text, count);
            text += count;
            if (count == wordSize)
                continue;
        }
        // Where one character is not ASCII, the next ones often are not either.
        do {
            wchar_t wide;
            const int bytes = Decode(text, wide);
            if (bytes == 0)
                return text;
            sink.Character(wide);
            text += bytes;
        } while (text < end && (*text & 0x80) != 0);
    }
    return text;
}

/// True if all of [text, end) is UTF-8. Nothing is decoded: the bits that tell are looked at in the
/// four bytes together.
///
/// Requires: a NUL stands at `end`.
inline bool IsValid(const char* text, const char* end) {
    while (end - text >= wordSize) {
        const int count = AsciiPrefix(text);
        text += count;
        if (count == wordSize) {
            // Where so many are ASCII, the next ones often are as well.
            constexpr std::ptrdiff_t fourWords = sizeof(std::uint64_t[4]);
            for (; end - text >= fourWords; text += fourWords) {
                std::uint64_t block[4];
                std::memcpy(block, text, sizeof block);
                if (((block[0] | block[1] | block[2] | block[3]) & highBits) != 0)
                    break;
            }
            continue;
        }
        do {
            if (end - text < 4)
                break;
            std::uint32_t bytes; // the first one lowest
            std::memcpy(&bytes, text, sizeof bytes);
            if constexpr (std::endian::native == std::endian::big)
                bytes = __builtin_bswap32(bytes);
            if ((bytes & 0x0000C0E0) == 0x000080C0 && (bytes & 0x1E) != 0)
                text += 2;
            else if ((bytes & 0x00C0C0F0) == 0x008080E0 && (bytes & 0x200F) != 0 &&
                     (bytes & 0x200F) != 0x200D)
                text += 3;
            else if ((bytes & 0xC0C0C0F8) == 0x808080F0 && (bytes & 0x3007) != 0 &&
                     ((bytes & 0x04) == 0 || (bytes & 0x3003) == 0))
                text += 4;
            else
                return false;
        } while ((*text & 0x80) != 0);
    }
    for (int bytes = 0; text < end; text += bytes) {
        wchar_t wide;
        bytes = Decode(text, wide);
        if (bytes == 0)
            return false;
    }
    return true;
}

/// A sink that stores what it is given, and touches nothing behind that.
struct WideWriter {
    wchar_t* target;

    void Ascii(const char* text, int count) {
        if (count == wordSize)
            CopyWord(target, text);
        else
            for (int i = 0; i < count; ++i)
                target[i] = static_cast<wchar_t>(text[i]);
        target += count;
    }
    void Character(wchar_t wide) { *target++ = wide; }
};

/// Bytes of the encoded form of `wide`; 0 for what is no Unicode scalar value.
inline int EncodedSize(wchar_t wide) {
    const auto code = static_cast<std::uint32_t>(wide);
    if (code < 0x80)
        return 1;
    if (code < 0x800)
        return 2;
    if (code < 0x10000)
        return (code & 0xF800) != 0xD800 ? 3 : 0;
    return code <= 0x10FFFF ? 4 : 0;
}

/// Writes the `size` bytes of `wide`, with `size` from EncodedSize and above 0.
inline void Encode(char* target, wchar_t wide, int size) {
    const auto code = static_cast<std::uint32_t>(wide);
    const auto tail = [code](int shift) {
        return static_cast<char>(0x80 | (code >> shift & 0x3F));
    };
    switch (size) {
    case 1:
        target[0] = static_cast<char>(code);
        break;
    case 2:
        target[0] = static_cast<char>(0xC0 | code >> 6);
        target[1] = tail(0);
        break;
    case 3:
        target[0] = static_cast<char>(0xE0 | code >> 12);
        target[1] = tail(6);
        target[2] = tail(0);
        break;
    default:
        target[0] = static_cast<char>(0xF0 | code >> 18);
        target[1] = tail(12);
        target[2] = tail(6);
        target[3] = tail(0);
    }
}

} // namespace utf8

#endif
