// SPDX-License-Identifier: MIT
//
// Bits kept in bytes, the first bit on top of the first byte, worked on as words of 64: the
// results are those of going through the bits one by one. No function writes a byte that holds
// none of the bits it was asked about, or reads one behind them.
#ifndef PLINTH_DS_BITWORDS_H
#define PLINTH_DS_BITWORDS_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace bitwords {

using Word = std::uint64_t;
constexpr std::size_t wordBytes = sizeof(Word);
constexpr unsigned int wordBits = 64;

/// The conversion between memory and a word that has the first bit on top.
inline Word FirstBitOnTop(Word raw) {
    return std::endian::native == std::endian::little ? __builtin_bswap64(raw) : raw;
}
inline Word Load(const unsigned char* from) {
    Word raw;
    std::memcpy(&raw, from, wordBytes);
    return FirstBitOnTop(raw);
}
inline void Store(unsigned char* to, Word word) {
    word = FirstBitOnTop(word);
    std::memcpy(to, &word, wordBytes);
}
/// The first `count` bytes, less than a word, with 0 behind them.
inline Word LoadSome(const unsigned char* from, std::size_t count) {
    Word raw = 0;
    std::memcpy(&raw, from, count);
    return FirstBitOnTop(raw);
}

/// A word whose first `count` bits, less than a word, are on.
inline Word TopBits(unsigned long count) {
    return ~(~Word{0} >> count);
}

/// How many of the first `count` bits are on.
std::size_t Count(const unsigned char* bits, std::size_t count);

/// The index of the on bit that has `rank` on bits before it; `count` if fewer are on.
std::size_t Select(const unsigned char* bits, std::size_t count, std::size_t rank);

/// The first on bit of [from, end), or `end`.
std::size_t FindForward(const unsigned char* bits, std::size_t from, std::size_t end);

/// The last on bit of [0, end), or `end`.
std::size_t FindBackward(const unsigned char* bits, std::size_t end);

/// Turns [from, end) on or off.
void Assign(unsigned char* bits, std::size_t from, std::size_t end, bool on);

/// Moves `count` bits from index `from` to index `to`; the ranges may overlap, and no bit
/// outside the target changes.
void Move(unsigned char* bits, std::size_t from, std::size_t to, std::size_t count);

} // namespace bitwords

#endif
