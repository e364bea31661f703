// SPDX-License-Identifier: MIT
//
// Quoted text beside a second reader and a second writer, both made of nothing but std::string.
#include "mbconv.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "fuzz/support/require.h"

namespace {

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char letter : text) {
        const int byte = static_cast<signed char>(letter);
        char number[16];
        std::snprintf(number, sizeof number, "\\%03o", static_cast<unsigned>(byte));
        if (letter == '\\' || letter == '"')
            quoted += std::string("\\") + letter;
        else
            quoted += byte >= 0x20 && byte < 0x7F ? std::string(1, letter) : number;
    }
    return quoted + '"';
}

/// Reads from `begin` to `end`; only an escape looks further, and takes a NUL for what it is.
std::string Unquoted(const std::string& text, std::size_t begin, std::size_t end) {
    const std::string letters = "abfnrtv", meanings = "\a\b\f\n\r\t\v", hex = "0123456789abcdef";
    std::string out;
    for (std::size_t at = begin; at < end;) {
        if (text[at] != '\\') {
            out += text[at++];
            continue;
        }
        const char kind = at + 1 < text.size() ? text[at + 1] : '\0';
        at += 2;
        if (const auto letter = letters.find(kind); letter != letters.npos) {
            out += meanings[letter];
        } else if (kind == 'x' || (kind >= '0' && kind <= '7')) {
            const std::size_t base = kind == 'x' ? 16 : 8;
            if (base == 8)
                --at;
            std::size_t number = 0;
            for (; at < text.size(); ++at) {
                const char lower = text[at] >= 'A' && text[at] <= 'F' ? text[at] + 32 : text[at];
                const auto digit = hex.find(lower);
                if (digit >= base)
                    break;
                number = (number * base + digit) % 256;
            }
            out += static_cast<char>(number);
        } else {
            out += kind == '"' ? "\\\"" : std::string(1, kind);
        }
    }
    return out + '\0';
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = std::string(data, data + size).c_str();
    std::ostringstream quoted, plain, bare;
    NativeStringToCStyle(text.c_str(), quoted);
    Require(quoted.str() == Quoted(text));

    CStyleStringToNative(text.c_str(), true, bare);
    Require(bare.str() == Unquoted(text, 0, text.size()));
    const bool any = text.size() >= 2;
    CStyleStringToNative(text.c_str(), false, plain);
    Require(plain.str() == Unquoted(text, 1, any ? text.size() - 1 : 0));
    return 0;
}
