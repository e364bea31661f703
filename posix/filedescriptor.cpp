// SPDX-License-Identifier: MIT
//
// The descriptor behind a file stream. The standard offers no way to it; this is the one of
// libstdc++, and the only file of the tree that depends on that library.
#include "outside/varnholt/streambuf.h"

#include <fstream>

#include "outside/win32/handles.h"

namespace {

/// Reaches a protected member of the base through a pointer to it, which any derived class may
/// form; the buffer itself is used as what it is.
struct FileOf : std::filebuf {
    static int Descriptor(std::filebuf& buffer) { return (buffer.*(&FileOf::_M_file)).fd(); }
};

} // namespace

void* zelHandleOfFile(std::basic_filebuf<char>& file) {
    return zelHandleOfDescriptor(file.is_open() ? FileOf::Descriptor(file) : -1);
}
