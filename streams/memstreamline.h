// SPDX-License-Identifier: MIT
//
// How rwStream::ReadLn takes a line out of a stream in memory, without asking for single bytes.
#ifndef PLINTH_STREAMS_MEMSTREAMLINE_H
#define PLINTH_STREAMS_MEMSTREAMLINE_H

#include "rwstream.h"

class memStreamLine {
public:
    /// Makes `line` what stands in front of the next `delimiter`, or of the end of the data, with a
    /// NUL behind it, and moves the position behind the delimiter.
    static void Take(memStream& stream, dsXArray<char>& line, char delimiter);
};

#endif
