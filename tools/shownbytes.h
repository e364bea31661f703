// SPDX-License-Identifier: MIT
//
// For the tests and the fuzz target: the bytes that a dump shows.
#ifndef PLINTH_TOOLS_SHOWNBYTES_H
#define PLINTH_TOOLS_SHOWNBYTES_H

#include <cctype>
#include <sstream>
#include <string>

namespace tools {

/// The bytes in the rows of a dump, in order. Each must stand at the offset that its row tells.
inline std::string ShownBytes(const std::string& dump, bool& offsetsHold) {
    std::string bytes;
    offsetsHold = true;
    std::istringstream lines(dump);
    for (std::string line; std::getline(lines, line);) {
        if (line.size() < 10 || line.compare(8, 2, "  ") != 0)
            continue;
        offsetsHold = offsetsHold && std::stoul(line.substr(0, 8), nullptr, 16) == bytes.size();
        std::istringstream columns(line.substr(10, 24));
        columns >> std::hex;
        for (unsigned int byte; columns >> byte;)
            bytes += static_cast<char>(byte);
    }
    return bytes;
}

} // namespace tools

#endif
