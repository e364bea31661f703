// SPDX-License-Identifier: MIT
//
// A text in a file replaced by another, beside std::string: what is looked for and what comes in
// its place, each up to a NUL, and then the file. The first byte says how much stands in front of
// that, so that what is looked for may lie across the end of a block.
#include "pfufs.h"

#include <cstdio>

#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/support/require.h"

namespace {

constexpr unsigned block = 32768; ///< bytes that are read at once

std::string NameOf(int file) {
    return "/proc/self/fd/" + std::to_string(file);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int from = memfd_create("from", MFD_CLOEXEC), to = memfd_create("to", MFD_CLOEXEC);
    static std::string room(1 << 21, '\0');
    Input input(data, size);
    const unsigned choice = input.Byte();
    const std::string find = input.Text(), with = input.Text();
    const std::string text =
        std::string(choice < 128 ? choice : block - 300 + choice, 'x') + input.Rest();

    std::string wanted;
    std::size_t at = 0;
    for (std::size_t found; !find.empty() && (found = text.find(find, at)) != text.npos;) {
        wanted += text.substr(at, found - at) + with;
        at = found + find.size();
    }
    wanted += text.substr(at);
    if (wanted.size() > room.size())
        return 0;
    Require(ftruncate(from, 0) == 0 && ftruncate(to, 0) == 0);
    Require(pwrite(from, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    const errstatus status = pfuFS::pfuReplaceString(find.c_str(), with.c_str(),
                                                     NameOf(from).c_str(), NameOf(to).c_str());
    Require(status == (find.empty() || find.size() > 4095 ? errFailed : errOK));
    if (status != errOK)
        wanted.clear();
    const ssize_t got = pread(to, room.data(), room.size(), 0);
    Require(room.compare(0, static_cast<std::size_t>(got), wanted) == 0);
    return 0;
}
