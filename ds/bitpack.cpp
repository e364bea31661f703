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
#include <climits>
#include <cstdint>
#include <cstring>
#include <istream>
#include <ostream>
#include <string>

#include "dsbitset.h"

namespace {

constexpr std::size_t longestRun = 255;
constexpr std::size_t bufferSize = 4096;

/// Collects what goes to a stream, so that the stream is not asked for every byte.
class PackBuffer {
public:
    explicit PackBuffer(std::ostream& target) : os(target) {}

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
        const char run[2] = {0, static_cast<char>(static_cast<unsigned char>(length))};
        PutLiterals(run, sizeof run);
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
    unsigned long word = 0;
    while (static_cast<std::size_t>(end - from) >= sizeof word) {
        std::memcpy(&word, from, sizeof word);
        if (word != 0)
            break;
        from += sizeof word;
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
        const char* const zeros = FindZero(data, end);
        out.PutLiterals(data, static_cast<std::size_t>(zeros - data));
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
            if (!inRun) {
                const char* const zero = FindZero(from, end);
                const auto literals = static_cast<std::size_t>(zero - from);
                const std::size_t fitting = std::min(literals, limit - stored);
                std::memcpy(target + stored, from, fitting);
                stored += fitting;
                if (fitting != literals)
                    return limit + 1;
                if (zero == end)
                    break;
                inRun = true;
                from = zero + 1;
            } else {
                const std::size_t length = static_cast<unsigned char>(*from++);
                const std::size_t fitting = std::min(length, limit - stored);
                std::memset(target + stored, 0, fitting);
                stored += fitting;
                if (fitting != length)
                    return limit + 1;
                inRun = false;
            }
        }
    }
    return inRun ? 0 : stored;
}

unsigned int Unpack(std::istream& is, char* target) {
    return static_cast<unsigned int>(UnpackAtMost(is, target, UINT_MAX));
}
