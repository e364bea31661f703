// SPDX-License-Identifier: MIT
#include "rwstream.h"

#include "streams/memstreamline.h"

rwStream::~rwStream() = default;

errstatus rwStream::ReadLn(dsXArray<char>& line, char delimiter) {
    // What derives from the stream in memory sees each read, and what derives from the array each
    // byte.
    if (dsIsExactly<memStream>(*this) && dsIsExactly<dsXArray<char>>(line)) {
        memStreamLine::Take(static_cast<memStream&>(*this), line, delimiter);
        return errOK;
    }
    line.Clear();
    errstatus status;
    for (;;) {
        char byte = 0;
        int count = 0;
        status = Read(&byte, 1, count);
        if (status != errOK || count != 1 || byte == delimiter)
            break;
        line += byte;
    }
    line += '\0';
    return status;
}
