// SPDX-License-Identifier: MIT
//
// How the library's own functions give a string its text: where it is made, with its length known.
#ifndef PLINTH_DS_OWNEDTEXT_H
#define PLINTH_DS_OWNEDTEXT_H

#include <cstddef>
#include <cstring>
#include <memory>
#include <utility>

#include "dsstring.h"

struct OwnedText {
    /// The one empty text of the process. It is never written to; only its address tells it from a
    /// buffer that a string owns.
    static const char empty[1];

    /// Makes `made` the text of `string`, which owns it then, and releases the text before.
    ///
    /// Requires: the block ends behind the first NUL.
    static void Adopt(dsString& string, std::unique_ptr<char[]> made) {
        if (string.text != empty)
            delete[] string.text;
        string.text = made.release();
    }

    /// Makes a copy of `size` bytes the text of `string`.
    ///
    /// Requires: there is no NUL among the bytes.
    static void Assign(dsString& string, const char* bytes, std::size_t size) {
        auto copy = std::make_unique_for_overwrite<char[]>(size + 1);
        std::memcpy(copy.get(), bytes, size);
        copy[size] = '\0';
        Adopt(string, std::move(copy));
    }
};

#endif
