// SPDX-License-Identifier: MIT
//
// The C functions decide what native text means. Where the locale's encoding is UTF-8 the codec
// below does their work faster, as long as the text is strict UTF-8; for anything else they are
// asked after all, so that there is one answer only. (They may know characters beyond U+10FFFF.)
#include "outside/quillmarsh/multibyte.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <new>
#include <optional>

#include "outside/quillmarsh/sameform.h"
#include "posix/latin1.h"
#include "posix/utf8.h"

#include <langinfo.h>
#include <locale.h>

namespace {

enum class Encoding { Utf8, Latin1, Ascii, Other };

/// The name of the encoding of the locale "C", a constant of the C library's: other locales have
/// names of their own, even where they read the same.
const char* PlainEncodingName() {
    static const char* const name =
        ::nl_langinfo_l(CODESET, ::newlocale(LC_ALL_MASK, "C", nullptr));
    return name;
}

/// The encoding of the calling thread's locale, as far as it makes a difference here. `Ascii` is
/// any single-byte encoding in which the bytes below 0x80 are ASCII, and so is `Latin1`, in which
/// all bytes are the characters of their numbers. This is asked for each text, however short, so
/// the two common answers come first, without a call.
Encoding NativeEncoding() {
    const char* const name = ::nl_langinfo(CODESET);
    if (name == PlainEncodingName())
        return Encoding::Ascii;
    if (name[0] == 'U' && name[1] == 'T' && name[2] == 'F' && name[3] == '-' && name[4] == '8' &&
        name[5] == 0)
        return Encoding::Utf8;
    if (std::strncmp(name, "ISO-8859-", 9) == 0)
        return name[9] == '1' && name[10] == 0 ? Encoding::Latin1 : Encoding::Ascii;
    if (std::strcmp(name, "ANSI_X3.4-1968") == 0)
        return Encoding::Ascii;
    return Encoding::Other;
}

bool IsAscii(const char* text, const char* end) {
    std::uint64_t block[4];
    constexpr std::ptrdiff_t blockSize = sizeof block;
    for (; end - text >= blockSize; text += blockSize) {
        std::memcpy(block, text, sizeof block);
        if (((block[0] | block[1] | block[2] | block[3]) & utf8::highBits) != 0)
            return false;
    }
    for (; end - text >= utf8::wordSize; text += utf8::wordSize)
        if (utf8::AsciiPrefix(text) < utf8::wordSize)
            return false;
    return std::none_of(text, end, [](char byte) { return (byte & 0x80) != 0; });
}

/// Whether `Words` times 8 bytes are ASCII and none is a NUL: each high bit that comes up tells of
/// a byte that is not ASCII, or of one that had nothing to take 1 from.
template <int Words>
bool ArePlain(const char* text) {
    constexpr std::uint64_t ones = utf8::highBits >> 7;
    std::uint64_t found = 0;
    for (std::ptrdiff_t i = 0; i < Words; ++i) {
        std::uint64_t word;
        std::memcpy(&word, text + i * utf8::wordSize, sizeof word);
        found |= word | (word - ones);
    }
    return (found & utf8::highBits) == 0;
}

/// The same for a text of any size, whose last bytes may be looked at twice.
bool IsPlain(const char* text, std::size_t size) {
    const char* const end = text + size;
    if (size < 8)
        return std::all_of(text, end, [](char byte) { return (byte & 0x80) == 0 && byte != 0; });
    if (size <= 16)
        return ArePlain<1>(text) && ArePlain<1>(end - 8);
    for (; end - text > 32; text += 32)
        if (!ArePlain<4>(text))
            return false;
    return size >= 32 ? ArePlain<4>(end - 32) : ArePlain<2>(text) && ArePlain<2>(end - 16);
}

std::optional<std::size_t> CountDecoded(const char* text) {
    struct {
        std::size_t count = 0;
        void Ascii(const char*, int more) { count += static_cast<std::size_t>(more); }
        void Character(wchar_t) { ++count; }
    } counter;
    const char* const end = text + std::strlen(text);
    if (utf8::DecodeRun(text, end, counter) != end)
        return std::nullopt;
    return counter.count;
}

/// zel_mbstowcs for strict UTF-8, or nothing. Nobody reads behind the terminator, or behind the
/// character at which the limit ends the work: so many bytes are looked at as characters are
/// wanted, and then as many as are wanted still.
std::optional<std::size_t> DecodeText(wchar_t* target, const char* text, std::size_t limit) {
    utf8::WideWriter writer{target};
    std::size_t count = 0;
    while (count < limit) {
        const char* const end = text + ::strnlen(text, limit - count);
        if (text == end) {
            *writer.target = 0;
            break;
        }
        text = utf8::DecodeRun(text, end, writer);
        if (text < end)
            return std::nullopt;
        count = static_cast<std::size_t>(writer.target - target);
    }
    return count;
}

/// zel_wcstombs for Unicode text, or nothing.
std::optional<std::size_t> EncodeText(char* target, const wchar_t* text, std::size_t limit) {
    std::size_t count = 0;
    while (count < limit) {
        const wchar_t* const end = text + ::wcsnlen(text, limit - count);
        if (text == end) {
            target[count] = 0;
            break;
        }
        while (text < end) {
            if (end - text >= utf8::wordSize && limit - count >= utf8::wordSize &&
                utf8::IsAsciiWord(text)) {
                utf8::CopyWord(target + count, text);
                text += utf8::wordSize;
                count += utf8::wordSize;
                continue;
            }
            const wchar_t* const next = std::min(end, text + utf8::wordSize);
            for (; text < next; ++text) {
                const int bytes = utf8::EncodedSize(*text);
                if (bytes == 0)
                    return std::nullopt;
                if (static_cast<std::size_t>(bytes) > limit - count)
                    return count;
                utf8::Encode(target + count, *text, bytes);
                count += static_cast<std::size_t>(bytes);
            }
        }
    }
    return count;
}

std::optional<std::size_t> CountEncoded(const wchar_t* text) {
    std::size_t count = 0;
    for (; *text != 0; ++text) {
        const int bytes = utf8::EncodedSize(*text);
        if (bytes == 0)
            return std::nullopt;
        count += static_cast<std::size_t>(bytes);
    }
    return count;
}

} // namespace

int zel_mblen(const char* text, std::size_t limit) {
    return zel_mbtowc(nullptr, text, limit);
}

int zel_mbtowc(wchar_t* target, const char* text, std::size_t limit) {
    if (text == nullptr)
        return 0; // no state is kept that could be asked for
    const Encoding encoding = NativeEncoding();
    const bool isAscii = limit > 0 && (*text & 0x80) == 0 && encoding != Encoding::Other;
    if (isAscii || (limit >= 4 && encoding == Encoding::Utf8)) {
        wchar_t wide;
        if (const int bytes = utf8::Decode(text, wide)) {
            if (target != nullptr)
                *target = wide;
            return wide == 0 ? 0 : bytes;
        }
    }
    std::mbstate_t state{};
    const std::size_t bytes = std::mbrtowc(target, text, limit, &state);
    // Both "invalid" and "incomplete" are huge.
    return bytes <= limit ? static_cast<int>(bytes) : -1;
}

int zel_wctomb(char* target, wchar_t wide) {
    if (target == nullptr)
        return 0;
    const int bytes = utf8::EncodedSize(wide);
    const Encoding encoding = bytes != 0 ? NativeEncoding() : Encoding::Other;
    if (encoding == Encoding::Utf8 || (encoding != Encoding::Other && bytes == 1)) {
        utf8::Encode(target, wide, bytes);
        return bytes;
    }
    std::mbstate_t state{};
    return static_cast<int>(std::wcrtomb(target, wide, &state));
}

std::size_t zel_mbstowcs(wchar_t* target, const char* text, std::size_t limit) {
    if (NativeEncoding() == Encoding::Utf8)
        if (const auto count = target ? DecodeText(target, text, limit) : CountDecoded(text))
            return *count;
    std::mbstate_t state{};
    return std::mbsrtowcs(target, &text, limit, &state);
}

std::size_t zel_wcstombs(char* target, const wchar_t* text, std::size_t limit) {
    if (NativeEncoding() == Encoding::Utf8)
        if (const auto count = target ? EncodeText(target, text, limit) : CountEncoded(text))
            return *count;
    std::mbstate_t state{};
    return std::wcsrtombs(target, &text, limit, &state);
}

bool zelSameForm(const char* text, std::size_t length) {
    switch (NativeEncoding()) {
    case Encoding::Utf8:
        return utf8::IsValid(text, text + length);
    case Encoding::Latin1:
    case Encoding::Ascii:
        return IsAscii(text, text + length);
    case Encoding::Other:
        break;
    }
    return false;
}

bool zelPlainText(const char* text, std::size_t length) {
    return NativeEncoding() != Encoding::Other && IsPlain(text, length);
}

char* zelShortWayToNeut(const char* native, std::size_t length) {
    if (NativeEncoding() != Encoding::Latin1)
        return nullptr;
    const char* const end = native + length;
    char* const neutral = static_cast<char*>(operator new(latin1::SizeInUtf8(native, end) + 1));
    *latin1::ToUtf8(neutral, native, end) = 0;
    return neutral;
}

char* zelShortWayToNative(const char* neutral, std::size_t length) {
    if (NativeEncoding() != Encoding::Latin1)
        return nullptr;
    // Room for the words that are copied whole.
    char* const native = static_cast<char*>(operator new(length + 1));
    char* const end = latin1::FromUtf8(native, neutral, neutral + length);
    if (end == nullptr) {
        operator delete(native);
        return nullptr;
    }
    *end = 0;
    return native;
}
