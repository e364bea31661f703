// SPDX-License-Identifier: MIT
#include "rwstream.h"

rwStream::~rwStream() = default;

errstatus rwStream::ReadLn(dsXArray<char>& line, char delimiter) {
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
