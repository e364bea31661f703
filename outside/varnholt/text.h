// SPDX-License-Identifier: MIT
//
// Text helpers of the ground: lengths, copies, wildcards, the environment, and the codec of neutral
// text.
#ifndef PLINTH_VARNHOLT_TEXT_H
#define PLINTH_VARNHOLT_TEXT_H

#include "outside/zelexport.h"

/// Bytes of `text` before its NUL; 0 for a null pointer.
ZEL_EXPORT int Strlen(const char* text);

/// Sets `*value` to the value of the environment variable and gives true, or gives false and
/// leaves `*value` alone, also for a name that holds a '='. The text belongs to the environment.
ZEL_EXPORT bool Getenv(const char* name, const char** value);

/// A copy of `text` for `operator delete`; null for null.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the name is given.
[[nodiscard]] ZEL_EXPORT char* Strnew__(const char* text);

/// Writes the wide form of native `text` into `target`, up to `limit` wide characters and a NUL,
/// and returns how many there are without it. A byte b that begins no character of the locale
/// becomes the wide character 0xDC00 + b, which stands for nothing else: texts that differ stay
/// different.
///
/// Requires: `target` has room for `limit` wide characters and one more.
ZEL_EXPORT unsigned int Strtoxstr(wchar_t* target, const char* text, unsigned int limit);

/// The wide form of native `text`, as Strtoxstr gives it, for `operator delete`; null for null.
[[nodiscard]] ZEL_EXPORT wchar_t* XStrnew(const char* text);

/// True if all of `wideName` matches the pattern: `*` is any run of characters, `?` any one
/// character, everything else itself, and case counts. Takes no memory, and no more steps than
/// the product of the two lengths.
ZEL_EXPORT bool Strmatch(const wchar_t* wideName, const wchar_t* widePattern);

/// Writes the neutral form of `wide`, UTF-8 (RFC 3629), with its NUL, and returns the bytes
/// before that NUL. A wide character that is no Unicode scalar value becomes U+FFFD. The output
/// is `neutral`, whatever its `const` says.
///
/// Requires: `neutral` has room for 4 bytes a wide character and one more.
ZEL_EXPORT int mbxWideToNeut(char const* neutral, wchar_t const* wide);

/// Writes the wide form of `neutral`, with its NUL, and returns the wide characters before that
/// NUL. Each byte that is part of no valid UTF-8 sequence becomes U+FFFD, so that any bytes up to
/// the NUL can be read. The output is `wide`, whatever its `const` says.
///
/// Requires: `wide` has room for two wide characters more than `neutral` has bytes.
ZEL_EXPORT int mbxNeutToWide(char const* neutral, wchar_t const* wide);

#endif
