// SPDX-License-Identifier: MIT
//
// UTF-8 as the table of RFC 3629 has it, row by row.
#ifndef PLINTH_FUZZ_SUPPORT_SEQUENCE_H
#define PLINTH_FUZZ_SUPPORT_SEQUENCE_H

#include <cstddef>
#include <string>

/// The bytes of the sequence that begins at `at`, or 0.
inline std::size_t Sequence(const std::string& text, std::size_t at) {
    const auto in = [&](std::size_t i, int low, int high) {
        const int byte = at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : -1;
        return byte >= low && byte <= high;
    };
    const auto tail = [&](std::size_t i) { return in(i, 0x80, 0xBF); };
    if (in(0, 0x00, 0x7F))
        return 1;
    if (in(0, 0xC2, 0xDF) && tail(1))
        return 2;
    if ((in(0, 0xE0, 0xE0) && in(1, 0xA0, 0xBF) && tail(2)) ||
        (in(0, 0xE1, 0xEC) && tail(1) && tail(2)) ||
        (in(0, 0xED, 0xED) && in(1, 0x80, 0x9F) && tail(2)) ||
        (in(0, 0xEE, 0xEF) && tail(1) && tail(2)))
        return 3;
    if ((in(0, 0xF0, 0xF0) && in(1, 0x90, 0xBF) && tail(2) && tail(3)) ||
        (in(0, 0xF1, 0xF3) && tail(1) && tail(2) && tail(3)) ||
        (in(0, 0xF4, 0xF4) && in(1, 0x80, 0x8F) && tail(2) && tail(3)))
        return 4;
    return 0;
}

#endif
