// SPDX-License-Identifier: MIT
//
// The shorter ways between native and neutral text; the long one leads through wide text. This
// header is the library's own: it is not installed.
#ifndef PLINTH_QUILLMARSH_SAMEFORM_H
#define PLINTH_QUILLMARSH_SAMEFORM_H

#include <cstddef>

/// True if `length` bytes of text have the same bytes in native and in neutral form, so that
/// either conversion would give them back as they are. False promises nothing.
///
/// Requires: a NUL stands behind the bytes. One among them is as good as any other byte.
bool zelSameForm(const char* text, std::size_t length);

/// True if, besides, they are characters of ASCII, and none is a NUL. Nothing behind them is read.
bool zelPlainText(const char* text, std::size_t length);

/// The neutral form of `length` bytes of native text, or the native form of neutral text, in a new
/// block for `operator delete`. Null where the long way has to be gone, which may still find one.
///
/// Requires: a NUL stands behind the bytes, and none among them.
[[nodiscard]] char* zelShortWayToNeut(const char* native, std::size_t length);
[[nodiscard]] char* zelShortWayToNative(const char* neutral, std::size_t length);

#endif
