// SPDX-License-Identifier: MIT
//
// Texts that need no conversion. This header is the library's own: it is not installed.
#ifndef PLINTH_QUILLMARSH_SAMEFORM_H
#define PLINTH_QUILLMARSH_SAMEFORM_H

#include <cstddef>

/// True if `length` bytes of text have the same bytes in native and in neutral form, so that
/// either conversion would give them back as they are. False promises nothing.
///
/// Requires: a NUL stands behind the bytes. One among them is as good as any other byte.
bool zelSameForm(const char* text, std::size_t length);

#endif
