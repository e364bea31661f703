// SPDX-License-Identifier: MIT
//
// Packed blocks beside a second reader and a second writer, both made after the page of formats:
// the first byte of the input is a size, the rest a block, and then what a block holds. Nothing may
// be written outside the set; what restores must come back from what it saves.
#include <cctype>
#include <optional>
#include <sstream>
#include <vector>

#include <dsbitset.h>

#include "fuzz/support/require.h"

namespace {

/// The bytes that a block holds, as many of a torn one as there are.
struct Unpacked {
    explicit Unpacked(const std::string& block) {
        std::size_t at = 0;
        while (at < block.size() && std::isspace(static_cast<unsigned char>(block[at])) != 0)
            ++at;
        const std::size_t first = at;
        while (at < block.size() && block[at] >= '0' && block[at] <= '9')
            ++at;
        // No number, or one too large: nothing behind it is read.
        std::istringstream count(block.substr(first, at - first));
        unsigned int announced = 0;
        if (!(count >> announced))
            return;
        for (; at < block.size() && !torn; ++at) {
            if (block[at] != 0)
                bytes += block[at];
            else if (torn = ++at == block.size(); !torn)
                bytes.append(static_cast<unsigned char>(block[at]), '\0');
        }
    }
    std::string bytes;
    bool torn = false;
};

std::string Packed(const std::string& bytes) {
    std::string packed = std::to_string(bytes.size());
    for (std::size_t at = 0; at < bytes.size();) {
        std::size_t run = 0;
        while (run < 255 && at + run < bytes.size() && bytes[at + run] == 0)
            ++run;
        if (run == 0)
            packed += bytes[at++];
        else
            packed += {'\0', static_cast<char>(run)};
        at += run;
    }
    return packed;
}

void CheckSet(unsigned long size, const std::string& block) {
    dsBitSet set(size);
    set.Fill(0, 0);
    std::istringstream in(block);
    const bool restored = set.Restore(in) == 1;
    const Unpacked held(block);
    const std::size_t whole = size / 8 + 1;
    Require(restored == (!held.torn && held.bytes.size() == whole));
    for (unsigned long i = 0; i < size; ++i) {
        const auto byte =
            static_cast<unsigned char>(i / 8 < held.bytes.size() ? held.bytes[i / 8] : 255);
        Require(set.IsOn(i) == ((byte & 0x80 >> i % 8) != 0));
    }
    Require(!set.IsOn(size));
    if (!restored)
        return;

    std::ostringstream saved;
    Require(set.Save(saved) == 1);
    // The spare bits behind the last one may be stored as anything.
    const Unpacked again(saved.str());
    dsBitSet copy(size);
    std::istringstream back(saved.str());
    const char first = saved.str()[std::to_string(whole).size()];
    const bool lost = first >= '0' && first <= '9';
    Require(copy.Restore(back) == (lost ? 0 : 1));
    for (unsigned long i = 0; i < size && !lost; ++i)
        Require(copy.IsOn(i) == set.IsOn(i));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const unsigned long bits = input.Byte() * 3ul;
    const std::string block = input.Rest();
    CheckSet(bits, block);

    // Each byte of a block stands for 255 at the most.
    std::vector<char> target(block.size() * 255 + 1);
    std::istringstream whole(block);
    const Unpacked held(block);
    const unsigned int count = Unpack(whole, target.data());
    Require(count == (held.torn ? 0 : held.bytes.size()));
    Require(std::string(target.data(), count) == held.bytes.substr(0, count));

    std::ostringstream packed;
    const int empty = Pack(block.data(), static_cast<unsigned int>(block.size()), packed);
    Require(empty == (block.empty() ? 1 : 0));
    Require(packed.str() == (block.empty() ? "" : Packed(block)));
    return 0;
}
