// SPDX-License-Identifier: MIT
//
// Native text: multibyte text in the encoding of the calling thread's locale. These are the C
// library's conversions (ISO C 7.22.7 and 7.22.8), with its results in every locale; where the
// locale's encoding is UTF-8 they are faster. No state is kept between calls: an encoding with
// shift states is read from its initial state each time.
#ifndef PLINTH_QUILLMARSH_MULTIBYTE_H
#define PLINTH_QUILLMARSH_MULTIBYTE_H

#include <cstddef>

#include "outside/zelexport.h"

/// Bytes of the first character of `text`, looking at no more than `limit` of them: 0 for a NUL,
/// -1 where no valid character begins.
ZEL_EXPORT int zel_mblen(const char* text, std::size_t limit);

/// Converts `text` to at most `limit` wide characters, with the terminator where it fits; a null
/// `target` only counts, and the limit then plays no part. Gives the count without the
/// terminator, or -1 (all bits set) for text that the locale does not know.
ZEL_EXPORT std::size_t zel_mbstowcs(wchar_t* target, const char* text, std::size_t limit);

/// Converts wide `text` to at most `limit` bytes; otherwise like zel_mbstowcs. No character is
/// ever written in part.
ZEL_EXPORT std::size_t zel_wcstombs(char* target, const wchar_t* text, std::size_t limit);

/// One character of at most `limit` bytes into `*target` (which may be null): its bytes, 0 for a
/// NUL, -1 where no valid character begins.
ZEL_EXPORT int zel_mbtowc(wchar_t* target, const char* text, std::size_t limit);

/// One wide character into `target`, which has room for MB_LEN_MAX bytes: the bytes written,
/// 1 for a NUL, or -1 where the locale cannot express it.
ZEL_EXPORT int zel_wctomb(char* target, wchar_t wide);

#endif
