// SPDX-License-Identifier: MIT
//
// Packed blocks: the first byte of the input is a size, the rest a block. Nothing may be written
// outside the set; what restores must come back from what it saves.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <dsbitset.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string block(data + 1, data + size);

    dsBitSet set(data[0] * 3ul);
    std::istringstream in(block);
    if (set.Restore(in) == 1) {
        std::ostringstream saved;
        dsBitSet copy(data[0] * 3ul);
        if (set.Save(saved) != 1)
            std::abort();
        std::istringstream again(saved.str());
        const char first = saved.str()[std::to_string(data[0] * 3 / 8 + 1).size()];
        if (copy.Restore(again) != (first >= '0' && first <= '9' ? 0 : 1))
            std::abort();
    }

    // Each byte of a block stands for 255 at the most.
    std::vector<char> target(block.size() * 255 + 1);
    std::istringstream whole(block);
    if (Unpack(whole, target.data()) >= target.size())
        std::abort();
    return 0;
}
