// SPDX-License-Identifier: MIT
//
// Arbitrary bytes shown by an arbitrary layout: every byte is shown once, at its offset. The first
// byte chooses the look and whether there are messages, the layout is what stands in front of the
// first NUL.
#include "tools/dumper.h"
#include "tools/shownbytes.h"

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > 4096) // an index stands in each row, so that rows are longer than input
        return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::string::size_type end = text.find('\0');
    if (end == std::string::npos)
        return 0;
    tools::Layout layout;
    try {
        layout = tools::ParseLayout(text.substr(0, end));
    } catch (const std::invalid_argument&) {
        return 0;
    }
    const std::string bytes = text.substr(end + 1);
    std::stringbuf input(bytes);
    std::ostringstream output;
    tools::Look look;
    look.unicode = (data[0] & 2) != 0;
    tools::Dumper dumper(input, output, layout, look);
    (data[0] & 1) != 0 ? dumper.DumpMessages() : dumper.DumpRecords();
    bool offsetsHold = false;
    if (tools::ShownBytes(output.str(), offsetsHold) != bytes || !offsetsHold)
        std::abort();
    return 0;
}
