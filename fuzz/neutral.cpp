// SPDX-License-Identifier: MIT
//
// Texts of arbitrary bytes in one of four locales, which the first byte chooses. Native text is
// compared with the C functions, neutral text with a decoder after the table of RFC 3629, and what
// the conversions give with the road through wide text. Every block has its exact size.
#include "mbconv.h"

#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/support/require.h"
#include "fuzz/support/sequence.h"
#include "outside/quillmarsh/multibyte.h"
#include "outside/varnholt/text.h"

namespace {

constexpr std::size_t unconvertible = static_cast<std::size_t>(-1);

/// What neutral text says, byte by byte.
std::wstring Decode(const std::string& text) {
    std::wstring wide;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = Sequence(text, at);
        const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
        unsigned long code = size == 0 ? 0xFFFDul : size == 1 ? byte(0) : byte(0) & (0x7F >> size);
        for (std::size_t i = 1; i < size; ++i)
            code = code << 6 | (byte(i) & 0x3F);
        wide += static_cast<wchar_t>(code);
        at += size == 0 ? 1 : size;
    }
    return wide;
}

/// What a conversion gave, released as it has to be.
std::optional<std::string> Taken(char* text) {
    std::optional<std::string> taken;
    if (text != nullptr)
        taken = text;
    operator delete(text);
    return taken;
}

std::optional<std::string> WideToNeutral(const wchar_t* wide) {
    std::vector<char> neutral(4 * std::wcslen(wide) + 1);
    const int count = mbxWideToNeut(neutral.data(), wide);
    Require(std::strlen(neutral.data()) == static_cast<std::size_t>(count));
    return neutral.data();
}

void CheckNeutral(const std::string& text) {
    std::vector<wchar_t> wide(text.size() + 2);
    const int count = mbxNeutToWide(text.c_str(), wide.data());
    Require(std::wstring(wide.data(), static_cast<std::size_t>(count)) == Decode(text));
    // What was read is written in one way only, and reads the same.
    const std::string written = *WideToNeutral(wide.data());
    Require(Decode(written) == wide.data());

    std::vector<char> native(4 * wide.size());
    const bool known = std::wcstombs(native.data(), wide.data(), native.size()) != unconvertible;
    Require(Taken(mbxNeutToNative(text.c_str())) ==
            (known ? std::optional<std::string>(native.data()) : std::nullopt));
}

void CheckNative(const std::string& text, std::size_t limit) {
    std::vector<wchar_t> wide(text.size() + 1, L'#'), theirs = wide;
    limit %= wide.size() + 1;
    const std::size_t count = zel_mbstowcs(wide.data(), text.c_str(), limit);
    Require(count == std::mbstowcs(theirs.data(), text.c_str(), limit));
    Require(count == unconvertible || wide == theirs);

    const std::size_t all = std::mbstowcs(nullptr, text.c_str(), 0);
    Require(zel_mbstowcs(nullptr, text.c_str(), 0) == all);
    std::optional<std::string> neutral;
    if (all != unconvertible) {
        std::mbstowcs(wide.data(), text.c_str(), wide.size());
        neutral = WideToNeutral(wide.data());
    }
    Require(Taken(mbxNativeToNeut(text.c_str())) == neutral);
}

void CheckWide(const std::wstring& text, std::size_t limit) {
    std::vector<char> bytes(4 * text.size() + 1, '#'), theirs = bytes;
    limit %= bytes.size() + 1;
    const std::size_t count = zel_wcstombs(bytes.data(), text.c_str(), limit);
    Require(count == std::wcstombs(theirs.data(), text.c_str(), limit));
    Require(count == unconvertible || bytes == theirs);
    Require(zel_wcstombs(nullptr, text.c_str(), 0) == std::wcstombs(nullptr, text.c_str(), 0));
}

void CheckBlock(const std::string& block) {
    const std::unique_ptr<char, decltype([](char* list) { operator delete(list); })> list(
        mbxNativeToNeut(block.data(), static_cast<int>(block.size())));
    if (list == nullptr || block.empty())
        return;
    const char* at = list.get();
    std::size_t piece = 0;
    do {
        const std::string source = block.c_str() + piece;
        Require(Taken(mbxNativeToNeut(source.c_str())) == at);
        at += std::strlen(at) + 1;
        piece += source.size() + 1;
    } while (piece <= block.size());
    Require(*at == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2 || size > 5000)
        return 0;
    const char* const locales[] = {"C.UTF-8", "C", "en_US.ISO-8859-1", "zh_TW.BIG5"};
    if (std::setlocale(LC_ALL, locales[data[0] % 4]) == nullptr)
        return 0;
    const std::size_t limit = data[1];
    const std::string bytes(data + 2, data + size);
    const std::string text = bytes.c_str();
    CheckNeutral(text);
    CheckNative(text, limit);
    std::wstring wide = Decode(text);
    CheckWide(wide, limit);
    if (!wide.empty()) {
        wide[limit % wide.size()] = static_cast<wchar_t>(0xD7F0 + limit * 33); // and no character
        CheckWide(wide, limit);
    }
    if (bytes.size() < 900) // what fits a list in any case
        CheckBlock(bytes);
    for (const auto convert : {mbcNativeToNeut, mbcNeutToNative}) {
        const std::optional<std::string> one = Taken(convert(text.c_str()));
        Require(one.has_value() == (zel_mbtowc(nullptr, text.c_str(), 4) >= 0) ||
                convert == mbcNeutToNative);
    }
    return 0;
}
