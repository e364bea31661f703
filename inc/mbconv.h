// SPDX-License-Identifier: MIT
//
// Conversions of text: between native and neutral, and to and from quoted C style.
//
// Native text is multibyte text in the encoding of the calling thread's locale. Neutral text is
// the same on every host: UTF-8 (RFC 3629). Both end in a NUL and hold none inside. The functions
// keep no state and may be called from any thread.
//
// Every text that a function returns is a block from `operator new`, and the caller's: it goes
// back through `operator delete`, not through `delete[]` or free. A null result owns nothing; it
// means that the text is not valid in its encoding, or that the locale cannot express it. An
// exhausted heap is reported by the exception of `new`.
#ifndef PLINTH_MBCONV_H
#define PLINTH_MBCONV_H

#include <iosfwd>

#include "outside/zelexport.h"

/// The neutral form of a native text.
///
/// Requires: `native` is not null.
[[nodiscard]] ZEL_EXPORT char* mbxNativeToNeut(char const* native);

/// The neutral forms of the NUL-separated pieces in a block of `length` bytes, one behind the
/// other, each with its NUL, in a result of 4096 bytes. One more NUL stands behind the last piece.
/// The last byte of the block may be a NUL, which has one more, empty piece behind it, or not. A
/// length below 1 gives an empty list.
///
/// Null if a piece is not valid in the locale, or if the list does not fit: the sum of its pieces,
/// their NULs and the one behind them is limited to 4096 bytes. Only the latter is reported, on
/// the console.
[[nodiscard]] ZEL_EXPORT char* mbxNativeToNeut(char const* block, int length);

/// The native form of a neutral text. Bytes that are no valid UTF-8 read as U+FFFD, one for each;
/// the locale may know that character or not.
///
/// Requires: `neutral` is not null.
[[nodiscard]] ZEL_EXPORT char* mbxNeutToNative(char const* neutral);

/// The neutral form of the one native character at `character`; what stands behind it plays no
/// part. A NUL there gives an empty text, and a place where no valid character begins gives null.
[[nodiscard]] ZEL_EXPORT char* mbcNativeToNeut(char const* character);

/// The native form of the one neutral character at `character`. How many bytes belong to it is
/// measured by the locale, like a native one: this is of use where the two encodings agree on it.
[[nodiscard]] ZEL_EXPORT char* mbcNeutToNative(char const* character);

/// Writes the bytes of `text` as a quoted literal: a double quote, the text, a double quote. A
/// backslash stands in front of a backslash and a double quote; the bytes 0x20 to 0x7E are
/// themselves, and all others a backslash and an octal number of 3 digits or, from 0x80 on, the
/// 11 digits of the negative 32-bit number that such a byte is.
///
/// A text with an octal number leaves `out` in decimal base with the digit 0 as fill character.
/// No digit may follow an octal number where the text is to be read again: the reader takes all
/// there are.
ZEL_EXPORT void NativeStringToCStyle(char const* text, std::basic_ostream<char>& out);

/// Writes the bytes that a C-style text stands for, and a NUL behind them. With `noQuotes` false
/// the first and the last byte of `text`, whatever they are, are delimiters and skipped; of a text
/// shorter than that only the NUL is written.
///
/// The escapes are those of C: a, b, f, n, r, t, v, any number of octal digits, x and any number
/// of hexadecimal digits (of both, the low 8 bits count); any other byte behind a backslash stands
/// for itself. One differs from C: a backslash and a double quote are written as those two bytes.
ZEL_EXPORT void CStyleStringToNative(char const* text, bool noQuotes,
                                     std::basic_ostream<char>& out);

#endif
