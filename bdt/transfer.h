// SPDX-License-Identifier: MIT
//
// The way of every value between a stream and its buffer. All operators go through here rather
// than through the stream's exported functions, so that the compiler can join the steps.
#ifndef PLINTH_BDT_TRANSFER_H
#define PLINTH_BDT_TRANSFER_H

#include <cstdint>
#include <cstring>
#include <limits>
#include <sstream>
#include <type_traits>
#include <typeinfo>

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

/// The way past the virtual operations of a standard buffer in memory, into its areas: nobody sees
/// them there, and a call takes longer than a number does. Whatever derives from that buffer, and
/// any other one, is asked as it should be; so is this one where its area does not suffice.
class MemoryArea : public std::streambuf {
public:
    /// The next `count` bytes of the buffer, which are taken then; null where it has to be asked.
    static const char* Take(std::streambuf& buffer, int count) {
        const char* const next = (buffer.*&MemoryArea::gptr)();
        if (!IsMemory(buffer) || (buffer.*&MemoryArea::egptr)() - next < count)
            return nullptr;
        (buffer.*&MemoryArea::gbump)(count);
        return next;
    }
    /// The place for `count` bytes, which are put then; null where the buffer has to be asked.
    static char* Put(std::streambuf& buffer, int count) {
        char* const next = (buffer.*&MemoryArea::pptr)();
        if (!IsMemory(buffer) || (buffer.*&MemoryArea::epptr)() - next < count)
            return nullptr;
        (buffer.*&MemoryArea::pbump)(count);
        return next;
    }
    /// Not memcpy: where it knows that there is little to copy, the compiler puts an instruction in
    /// its place that takes longer to begin than most copies take.
    static void Copy(char* target, const char* source, int count) {
        std::memmove(target, source, static_cast<std::size_t>(count));
    }

private:
    /// By address, which may say no for too many, but soon.
    static bool IsMemory(const std::streambuf& buffer) {
        return &typeid(buffer) == &typeid(std::stringbuf);
    }
};

/// What Take and Put do where the buffer has to be asked. They stand apart, so that the way past it
/// has nothing to save.
int AskForBytes(bdtStream& stream, char* data, int count);
int OfferBytes(bdtStream& stream, const char* data, int count);

/// bdtStream::sgetn: how many of `count` bytes came.
inline int Take(bdtStream& stream, char* data, int count) {
    std::streambuf* const buffer = stream.rdbuf();
    if (buffer != nullptr && count > 0) [[likely]]
        if (const char* const source = MemoryArea::Take(*buffer, count)) [[likely]] {
            MemoryArea::Copy(data, source, count);
            return count;
        }
    return AskForBytes(stream, data, count);
}

/// bdtStream::sputn: how many of `count` bytes went.
inline int Put(bdtStream& stream, const char* data, int count) {
    std::streambuf* const buffer = stream.rdbuf();
    if (buffer != nullptr && count > 0) [[likely]]
        if (char* const target = MemoryArea::Put(*buffer, count)) [[likely]] {
            MemoryArea::Copy(target, data, count);
            return count;
        }
    return OfferBytes(stream, data, count);
}

template <typename Number>
using WordOf = std::conditional_t<sizeof(Number) == 4, std::uint32_t, std::uint64_t>;

/// What TakeNumber does with the bytes of a number. On its way through a register of its own type a
/// float could lose some.
template <typename Number>
inline void SetNumber(Number& number, const char* bytes, bool swaps) {
    WordOf<Number> word;
    std::memcpy(&word, bytes, sizeof word);
    if (swaps)
        word = Swapped(word);
    std::memcpy(&number, &word, sizeof number);
}

/// What TakeNumber does where the buffer has to be asked.
template <typename Number>
[[gnu::noinline]] bool AskForNumber(bdtStream& stream, bool swaps, Number& number) {
    char bytes[sizeof number];
    if (AskForBytes(stream, bytes, sizeof bytes) != sizeof bytes)
        return false;
    SetNumber(number, bytes, swaps);
    return true;
}

/// Reads a number of 4 or 8 bytes, which `swaps` tells to reverse; false, and `number` untouched,
/// after a short read.
template <typename Number>
inline bool TakeNumber(bdtStream& stream, bool swaps, Number& number) {
    if (std::streambuf* const buffer = stream.rdbuf()) [[likely]]
        if (const char* const source = MemoryArea::Take(*buffer, sizeof number)) [[likely]] {
            SetNumber(number, source, swaps);
            return true;
        }
    return AskForNumber(stream, swaps, number);
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
