// SPDX-License-Identifier: MIT
//
// What fuzz targets share: a wrong result is a crash, which the fuzzer reports with its input.
#ifndef PLINTH_FUZZ_SUPPORT_REQUIRE_H
#define PLINTH_FUZZ_SUPPORT_REQUIRE_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

inline void Require(bool holds) {
    if (!holds)
        std::abort();
}

/// Takes an input apart, front to back. What is asked for behind its end is 0 or empty.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : bytes(data, data + size) {}

    bool IsEmpty() const { return at >= bytes.size(); }
    unsigned Byte() { return IsEmpty() ? 0 : static_cast<unsigned char>(bytes[at++]); }
    /// Up to the next NUL, which is consumed, or to the end.
    std::string Text() {
        const std::size_t begin = at, end = bytes.find('\0', at);
        at = end == bytes.npos ? bytes.size() : end + 1;
        return bytes.substr(begin, end == bytes.npos ? end : end - begin);
    }
    std::string Block(std::size_t most) {
        const std::string block = bytes.substr(at, most);
        at += block.size();
        return block;
    }
    std::string Rest() { return Block(bytes.size()); }

private:
    const std::string bytes;
    std::size_t at = 0;
};

#endif
