// SPDX-License-Identifier: MIT
//
// The way of every value between a stream and its buffer. All operators go through here rather
// than through the stream's exported functions, so that the compiler can join the steps.
#ifndef PLINTH_BDT_TRANSFER_H
#define PLINTH_BDT_TRANSFER_H

#include <cstdint>
#include <cstring>
#include <limits>
#include <streambuf>
#include <type_traits>

#include "bdtstream.h"

namespace bdt {

// What the wire is made of is what this host computes with, but for the order of the bytes.
static_assert(sizeof(int) == 4 && sizeof(short) == 2 && sizeof(float) == 4 && sizeof(double) == 8 &&
              std::numeric_limits<double>::is_iec559);

inline std::uint32_t Swapped(std::uint32_t word) {
    return __builtin_bswap32(word);
}
inline std::uint64_t Swapped(std::uint64_t word) {
    return __builtin_bswap64(word);
}

/// bdtStream::sgetn: how many of `count` bytes came.
inline int Take(bdtStream& stream, char* data, int count) {
    std::streambuf* const buffer = stream.rdbuf();
    const bool any = buffer != nullptr && count > 0;
    const int moved = any ? static_cast<int>(buffer->sgetn(data, count)) : 0;
    if (moved != count) [[unlikely]]
        stream.setstate(bdtStream::eofbit | bdtStream::failbit);
    return moved;
}

/// bdtStream::sputn: how many of `count` bytes went.
inline int Put(bdtStream& stream, const char* data, int count) {
    std::streambuf* const buffer = stream.rdbuf();
    const bool any = buffer != nullptr && count > 0;
    const int moved = any ? static_cast<int>(buffer->sputn(data, count)) : 0;
    if (moved != count) [[unlikely]]
        stream.setstate(bdtStream::badbit);
    return moved;
}

/// Reads a number of 4 or 8 bytes, which `swaps` tells to reverse; false, and `number` untouched,
/// after a short read.
template <typename Number>
inline bool TakeNumber(bdtStream& stream, bool swaps, Number& number) {
    std::conditional_t<sizeof(Number) == 4, std::uint32_t, std::uint64_t> word;
    if (Take(stream, reinterpret_cast<char*>(&word), sizeof word) != sizeof word) [[unlikely]]
        return false;
    if (swaps)
        word = Swapped(word);
    // Byte by byte: on its way through a register a float could lose its bits.
    std::memcpy(&number, &word, sizeof number);
    return true;
}

/// Writes a number of 4 or 8 bytes, which `swaps` tells to reverse.
template <typename Word>
inline void PutWord(bdtStream& stream, bool swaps, Word word) {
    if (swaps)
        word = Swapped(word);
    Put(stream, reinterpret_cast<const char*>(&word), sizeof word);
}

} // namespace bdt

#endif
