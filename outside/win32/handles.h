// SPDX-License-Identifier: MIT
//
// Handles: one word for everything that the system hands out.
//
// A descriptor fd travels as fd * 2 + 1, so it is odd; an object (a thread, a process, a
// semaphore) travels as its address, so it is even. Descriptor -1 is the word -1, no object is
// null, and descriptor 0 is neither of the two.
#ifndef PLINTH_WIN32_HANDLES_H
#define PLINTH_WIN32_HANDLES_H

#include "outside/zelexport.h"

/// The word for a descriptor, -1 included.
inline void* zelHandleOfDescriptor(int descriptor) {
    return reinterpret_cast<void*>(static_cast<long>(descriptor) * 2 + 1);
}

/// The descriptor behind a word; -1 for a word that stands for an object or for nothing.
inline int zelDescriptorOfHandle(const void* handle) {
    const long word = reinterpret_cast<long>(handle);
    return (word & 1) != 0 ? static_cast<int>((word - 1) / 2) : -1;
}

/// Closes a handle of any kind: a descriptor is closed, an object loses this holder. False for
/// null and -1, and for a descriptor that is not open.
ZEL_EXPORT bool CloseHandle(void* handle);

/// The calling thread's last system error: its errno. Calls of this layer leave it as it was when
/// they succeed.
ZEL_EXPORT unsigned int GetLastError();

#endif
