// SPDX-License-Identifier: MIT
//
// Unpacking into a block that has an end.
#ifndef PLINTH_DS_BITPACK_H
#define PLINTH_DS_BITPACK_H

#include <cstddef>
#include <iosfwd>

/// Unpack that stores at most `limit` bytes. A block that holds more gives limit + 1, one that
/// breaks off inside a run gives 0.
std::size_t UnpackAtMost(std::istream& is, char* target, std::size_t limit);

#endif
