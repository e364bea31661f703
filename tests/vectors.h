// SPDX-License-Identifier: MIT
//
// The vectors on the page of byte formats, docs/formats.md.
#ifndef PLINTH_TESTS_VECTORS_H
#define PLINTH_TESTS_VECTORS_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace support {

struct Vector {
    std::string left, right;
};

/// The cases in the block of the page that is marked "vectors <name>".
inline std::vector<Vector> Vectors(const std::string& name) {
    const char* const moved = std::getenv("PLINTH_FORMATS_PAGE");
    std::ifstream page(moved != nullptr ? moved : PLINTH_FORMATS_PAGE);
    std::vector<Vector> cases;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        const auto bar = line.find(" | ");
        if (line.starts_with("```"))
            inside = line == "```vectors " + name;
        else if (inside && bar != line.npos)
            cases.push_back({line.substr(0, bar), line.substr(bar + 3)});
        else if (inside)
            ADD_FAILURE() << "no vector: " << line;
    }
    EXPECT_FALSE(cases.empty()) << "no vectors " << name;
    return cases;
}

inline std::string FromHex(const std::string& hex) {
    std::istringstream in(hex);
    in >> std::hex;
    std::string bytes;
    for (unsigned int byte; in >> byte;)
        bytes += static_cast<char>(byte);
    return bytes;
}

} // namespace support

#endif
