// SPDX-License-Identifier: MIT
//
// The packed form: runs of the byte 0 as a marker and a count, everything else as it is.
//
// The number in front is decimal whatever the stream makes of numbers: another base, a width, or a
// locale that groups digits would write what other programs cannot read, and take data for a part
// of what they wrote.
#include "ds/bitpack.h"

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <istream>
#include <ostream>
#include <string>

#include "ds/bitwords.h"
#include "dsbitset.h"

namespace {

constexpr std::size_t longestRun = 255;
constexpr std::size_t bufferSize = 4096;

/// Collects what goes to a stream, so that the stream is not asked for every byte.
class PackBuffer {
public:
    explicit PackBuffer(std::ostream& target) : os(target) {}

    void PutLiteral(char byte) {
        if (used == bytes.size())
            Flush();
        bytes[used++] = byte;
    }
    void PutLiterals(const char* data, std::size_t count) {
        if (count >= bytes.size()) {
            Flush();
            os.write(data, static_cast<std::streamsize>(count));
            return;
        }
        if (count > bytes.size() - used)
            Flush();
        std::memcpy(bytes.data() + used, data, count);
        used += count;
    }
    void PutRun(std::size_t length) {
        if (used + 2 > bytes.size())
            Flush();
        bytes[used] = 0;
        bytes[used + 1] = static_cast<char>(static_cast<unsigned char>(length));
        used += 2;
    }
    void Flush() {
        os.write(bytes.data(), static_cast<std::streamsize>(used));
        used = 0;
    }

private:
    std::ostream& os;
    std::array<char, bufferSize> bytes;
    std::size_t used = 0;
};

/// The first byte of the range that is not 0.
const char* SkipZeros(const char* from, const char* end) {
    const auto word = [](const char* at) {
        bitwords::Word raw; // 0 is 0 in any order
        std::memcpy(&raw, at, sizeof raw);
        return raw;
    };
    for (; end - from >= 32; from += 32) {
        const bitwords::Word one = word(from);
        const bitwords::Word two = one | word(from + 8);
        const bitwords::Word three = two | word(from + 16);
        if ((three | word(from + 24)) == 0)
            continue;
        // Nobody can predict which of them it is: arithmetic takes the place of branches.
        from += std::ptrdiff_t{8} * ((one == 0) + (two == 0) + (three == 0));
        return from + std::countl_zero(bitwords::FirstBitOnTop(word(from))) / 8;
    }
    return std::find_if(from, end, [](char byte) { return byte != 0; });
}

const char* FindZero(const char* from, const char* end) {
    const void* zero = std::memchr(from, 0, static_cast<std::size_t>(end - from));
    return zero != nullptr ? static_cast<const char*>(zero) : end;
}

/// A number that is there and fits; else the stream fails. The end of the stream ends the block,
/// whatever the number says.
void SkipCount(std::istream& is) {
    constexpr std::uint64_t tooLarge = std::uint64_t{UINT32_MAX} + 1;
    std::uint64_t count = 0;
    bool there = false;
    is >> std::ws;
    for (int c; (c = is.peek()) >= '0' && c <= '9'; is.ignore()) {
        count = std::min(count * 10 + static_cast<unsigned int>(c - '0'), tooLarge);
        there = true;
    }
    if (!there || count == tooLarge)
        is.setstate(std::ios::failbit);
}

} // namespace

int Pack(const char* data, unsigned int count, std::ostream& os) {
    if (data == nullptr || count == 0)
        return 1;
    const std::string digits = std::to_string(count);
    os.write(digits.data(), std::ssize(digits));
    PackBuffer out(os);
    const char* const end = data + count;
    while (data != end && !os.fail()) {
        const char* zeros = data;
        if (end - data > 1 && data[0] != 0 && data[1] == 0) { // as in sparse sets
            out.PutLiteral(*zeros++);
        } else if (*data != 0) {
            zeros = FindZero(data, end);
            out.PutLiterals(data, static_cast<std::size_t>(zeros - data));
        }
        data = SkipZeros(zeros, end);
        for (auto left = static_cast<std::size_t>(data - zeros); left != 0;) {
            const std::size_t length = std::min(left, longestRun);
            out.PutRun(length);
            left -= length;
        }
    }
    out.Flush();
    return os.fail() ? 1 : 0;
}

std::size_t UnpackAtMost(std::istream& is, char* target, std::size_t limit) {
    SkipCount(is);
    std::array<char, bufferSize> bytes;
    std::size_t stored = 0;
    bool inRun = false; // the marker was the last byte of the buffer before
    while (is) {
        is.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        const char* from = bytes.data();
        const char* const end = from + is.gcount();
        while (from != end) {
            if (inRun) {
                const std::size_t length = static_cast<unsigned char>(*from++);
                const std::size_t fitting = std::min(length, limit - stored);
                if (fitting == 1)
                    target[stored] = 0;
                else
                    std::memset(target + stored, 0, fitting);
                stored += fitting;
                if (fitting != length)
                    return limit + 1;
                inRun = false;
                continue;
            }
            // One byte between runs, as in sparse sets, is not worth a call.
            const char* zero = from;
            if (end - from > 1 && from[1] == 0 && from[0] != 0 && stored < limit) {
                target[stored++] = *zero++;
            } else if (*from != 0) {
                zero = FindZero(from, end);
                const auto literals = static_cast<std::size_t>(zero - from);
                const std::size_t fitting = std::min(literals, limit - stored);
                std::memcpy(target + stored, from, fitting);
                stored += fitting;
                if (fitting != literals)
                    return limit + 1;
                if (zero == end)
                    break;
            }
            inRun = true;
            from = zero + 1;
        }
    }
    return inRun ? 0 : stored;
}

unsigned int Unpack(std::istream& is, char* target) {
    return static_cast<unsigned int>(UnpackAtMost(is, target, UINT_MAX));
}
