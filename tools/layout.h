// SPDX-License-Identifier: MIT
//
// What a record consists of, told in a small language:
//
//     layout = field { "," field }
//     field  = kind [ name ]              kinds: see Kind
//            | name "*" "(" layout ")"    as often as the field of that name says, which is before
//            | "*" "(" layout ")"         up to the end
//
// Blanks separate; elsewhere they mean nothing. A name has letters, digits, "_", "-" and ".".
#ifndef PLINTH_TOOLS_LAYOUT_H
#define PLINTH_TOOLS_LAYOUT_H

#include <string>
#include <string_view>
#include <vector>

namespace tools {

/// The kinds of the portable encoding (docs/formats.md), all the bytes that are left, and a part of
/// the record that occurs any number of times.
enum class Kind {
    Char,
    UChar,
    Short,
    UShort,
    Int,
    UInt,
    Long,
    ULong,
    Float,
    Double,
    Character,
    Text,
    Wide,
    Block,
    Rest,
    Group,
};

struct Field {
    Kind kind;
    std::string name; ///< of a group: of the field that says how often; empty up to the end
    std::vector<Field> members;
};

using Layout = std::vector<Field>;

/// The layout that a text describes; of one that describes none, std::invalid_argument says why.
[[nodiscard]] Layout ParseLayout(std::string_view text);

} // namespace tools

#endif
