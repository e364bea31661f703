// SPDX-License-Identifier: MIT
#include "ds/bitwords.h"

#include <algorithm>

namespace bitwords {

namespace {

constexpr Word EveryByte(unsigned char value) {
    return ~Word{0} / 0xFF * value;
}

/// The number of on bits of each byte, in that byte.
Word CountInBytes(Word word) {
    word -= (word >> 1) & EveryByte(0x55);
    word = (word & EveryByte(0x33)) + ((word >> 2) & EveryByte(0x33));
    return (word + (word >> 4)) & EveryByte(0x0F);
}

/// The sum of the eight bytes, each at most 255.
std::size_t SumOfBytes(Word word) {
    constexpr Word evenBytes = 0x00FF00FF00FF00FF;
    word = (word & evenBytes) + ((word >> 8) & evenBytes);
    return static_cast<std::size_t>((word * 0x0001000100010001) >> 48);
}

std::size_t CountWord(Word word) {
    return SumOfBytes(CountInBytes(word));
}

/// As many words as a sum of their counts, byte by byte, can take without a carry.
constexpr std::size_t blockWords = 31;
constexpr std::size_t blockBytes = blockWords * wordBytes;

std::size_t CountWords(const unsigned char* bits, std::size_t words) {
    Word sums = 0;
    for (std::size_t i = 0; i < words; ++i) {
        Word raw; // counting needs no order
        std::memcpy(&raw, bits + i * wordBytes, wordBytes);
        sums += CountInBytes(raw);
    }
    return SumOfBytes(sums);
}

/// The bits [from, from + count) on top of a word, `count` at most a word's.
Word LoadBits(const unsigned char* bits, std::size_t from, std::size_t count) {
    const std::size_t shift = from & 7;
    const unsigned char* const first = bits + from / 8;
    const std::size_t held = (shift + count + 7) / 8;
    if (held < wordBytes)
        return LoadSome(first, held) << shift;
    Word word = Load(first) << shift;
    if (held > wordBytes)
        word |= Word{first[wordBytes]} >> (8 - shift);
    return word;
}

/// Stores the top `count` bits of `word`, at most 56, at [to, to + count).
void StoreBits(unsigned char* bits, std::size_t to, std::size_t count, Word word) {
    const std::size_t shift = to & 7;
    unsigned char* const first = bits + to / 8;
    const std::size_t held = (shift + count + 7) / 8;
    const Word mask = TopBits(count) >> shift;
    const Word merged = (LoadSome(first, held) & ~mask) | ((word >> shift) & mask);
    const Word raw = FirstBitOnTop(merged);
    std::memcpy(first, &raw, held);
}

} // namespace

std::size_t Count(const unsigned char* bits, std::size_t count) {
    std::size_t words = count / wordBits;
    std::size_t on = 0;
    for (; words >= blockWords; words -= blockWords, bits += blockBytes)
        on += CountWords(bits, blockWords);
    on += CountWords(bits, words);
    bits += words * wordBytes;
    const std::size_t rest = count % wordBits;
    return on + CountWord(LoadSome(bits, (rest + 7) / 8) & TopBits(rest));
}

std::size_t Select(const unsigned char* bits, std::size_t count, std::size_t rank) {
    constexpr std::size_t blockBits = blockBytes * 8;
    std::size_t index = 0;
    for (; count - index >= blockBits; index += blockBits) {
        const std::size_t on = CountWords(bits + index / 8, blockWords);
        if (rank < on)
            break;
        rank -= on;
    }
    while (index < count) {
        const std::size_t width = std::min<std::size_t>(wordBits, count - index);
        Word word = LoadBits(bits, index, width);
        if (width < wordBits)
            word &= TopBits(width);
        const std::size_t on = CountWord(word);
        if (rank < on) {
            for (; rank != 0; --rank)
                word &= ~(~(~Word{0} >> 1) >> std::countl_zero(word));
            return index + static_cast<std::size_t>(std::countl_zero(word));
        }
        rank -= on;
        index += width;
    }
    return count;
}

std::size_t FindForward(const unsigned char* bits, std::size_t from, std::size_t end) {
    if (from >= end)
        return end;
    std::size_t byte = from / 8;
    const std::size_t bytes = (end + 7) / 8;
    const auto next = [&] {
        const std::size_t left = bytes - byte;
        if (left >= wordBytes)
            return Load(bits + byte);
        // What lies before the range is there to be read as well.
        return bytes >= wordBytes ? Load(bits + bytes - wordBytes) << (wordBytes - left) * 8
                                  : LoadSome(bits + byte, left);
    };
    const auto found = [&](Word word) {
        return std::min(end, byte * 8 + static_cast<std::size_t>(std::countl_zero(word)));
    };
    // Only the first word can hold bits that lie before the range.
    if (const Word word = next() & ~Word{0} >> (from & 7); word != 0)
        return found(word);
    byte += wordBytes;
    const auto raw = [&](std::size_t behind) {
        Word word; // 0 is 0 in any order
        std::memcpy(&word, bits + byte + behind, wordBytes);
        return word;
    };
    for (; byte + 32 <= bytes; byte += 32)
        if ((raw(0) | raw(8) | raw(16) | raw(24)) != 0)
            break;
    for (; byte < bytes; byte += wordBytes)
        if (const Word word = next(); word != 0)
            return found(word);
    return end;
}

std::size_t FindBackward(const unsigned char* bits, std::size_t end) {
    for (std::size_t left = end; left != 0;) {
        const std::size_t width = std::min<std::size_t>(left, left % 8 == 0 ? wordBits : left % 8);
        const Word word = LoadBits(bits, left - width, width) >> (wordBits - width);
        if (word != 0)
            return left - 1 - static_cast<std::size_t>(std::countr_zero(word));
        left -= width;
    }
    return end;
}

void Assign(unsigned char* bits, std::size_t from, std::size_t end, bool on) {
    if (from >= end)
        return;
    const auto first = static_cast<unsigned char>(0xFF >> (from & 7));
    const auto last = static_cast<unsigned char>(~(0xFF >> (end & 7)));
    const auto merge = [on](unsigned char& byte, int mask) {
        byte = static_cast<unsigned char>(on ? byte | mask : byte & ~mask);
    };
    if (from / 8 == end / 8) {
        merge(bits[from / 8], first & last);
        return;
    }
    merge(bits[from / 8], first);
    const std::size_t whole = from / 8 + 1;
    std::memset(bits + whole, on ? 0xFF : 0, end / 8 - whole);
    if (last != 0)
        merge(bits[end / 8], last);
}

void Move(unsigned char* bits, std::size_t from, std::size_t to, std::size_t count) {
    constexpr std::size_t step = 56; // what fits a word at any place within a byte
    if (from > to) {
        for (std::size_t done = 0; done < count; done += step) {
            const std::size_t width = std::min(step, count - done);
            StoreBits(bits, to + done, width, LoadBits(bits, from + done, width));
        }
    } else {
        while (count != 0) {
            const std::size_t width = std::min(step, count);
            count -= width;
            StoreBits(bits, to + count, width, LoadBits(bits, from + count, width));
        }
    }
}

} // namespace bitwords
