// SPDX-License-Identifier: MIT
//
// Record streams: a seekable byte store that reports through errstatus instead of a stream state,
// and its implementation in memory.
//
// How memStream differs from std::stringstream:
//  - The data lies in pages of 4096 bytes that never move, so growing copies nothing.
//  - Reading and writing share one position.
//  - The last byte that a read can see is the one behind the data, a blank: N bytes written from
//    the start can be read as N + 1. Whoever writes at the end of the data overwrites it; whoever
//    has read on to the very end and then writes has it inside the data.
//  - What was never written reads as blanks.
//
// A stream belongs to one thread at a time. Offsets are below 2147483647.
#ifndef PLINTH_RWSTREAM_H
#define PLINTH_RWSTREAM_H

#include <ios>

#include "dsdatcol.h"
#include "errstatus.h"
#include "outside/zelexport.h"

/// A byte store with a position, as an interface.
class ZEL_EXPORT rwStream {
public:
    rwStream() = default;
    rwStream(const rwStream&) = delete;
    rwStream& operator=(const rwStream&) = delete;

    virtual errstatus OpenRead(char const* name) = 0;  ///< begins to read what has that name
    virtual errstatus OpenWrite(char const* name) = 0; ///< begins to write what has that name
    /// Everything, from the present position, into an array that takes the stream's size.
    virtual errstatus Read(dsXArray<char>& target) = 0;
    /// At most `length` bytes; `count` is how many there were. The end of the data is errOK with
    /// fewer bytes, or none.
    virtual errstatus Read(char* data, int length, int& count) = 0;
    /// Takes bytes up to `delimiter`, which is consumed, or up to the end of the data, and puts a
    /// NUL behind them. The result is that of the last read; the end of the data is errOK.
    virtual errstatus ReadLn(dsXArray<char>& line, char delimiter);
    virtual errstatus Write(dsXArray<char>& source) = 0; ///< all bytes of the array
    /// All `length` bytes, or a status other than errOK.
    virtual errstatus Write(char* data, int length) = 0;
    /// Moves to `offset` from the start (`origin` 0), to `offset` ahead of the position (1), or
    /// `offset` back from the end of the data (2). With any other origin to the start.
    virtual errstatus Seek(long offset, int origin) = 0;
    virtual errstatus GetPos(std::fpos<int>& place) = 0; ///< the position, in bytes from the start
    virtual ~rwStream();
};

/// The store in memory.
class ZEL_EXPORT memStream : public rwStream {
public:
    memStream();
    ~memStream() override;

    /// There is nothing to open; always errOK.
    errstatus OpenRead(char const* name) override;
    errstatus OpenWrite(char const* name) override;
    /// Resizes `target` to all that a read from the start can see. From a later position its
    /// tail holds whatever Resize left there.
    errstatus Read(dsXArray<char>& target) override;
    errstatus Read(char* data, int length, int& count) override;
    errstatus Write(dsXArray<char>& source) override;
    /// Overwrites and grows. errFailed when memory or offsets have run out: what fitted stays.
    errstatus Write(char* data, int length) override;
    /// errOutOfRange, and no move, for a place before the start or behind the end of the data;
    /// only a stream that was never written lets itself be sought to any place.
    errstatus Seek(long offset, int origin) override;
    errstatus GetPos(std::fpos<int>& place) override;

private:
    friend class memStreamLine;

    errstatus JumpTo(std::fpos<int> place);
    errstatus Store(char* data, int length, int* stored);
    errstatus Retrieve(char* data, int length, int* got);

    dsXArray<char*> pages; ///< each owned, with new[]
    int position;
    int limit; ///< 0 until the first byte; then one more than the highest position after a write
};

extern "C" {
/// A new memStream in `*stream`, for code that knows only rwStream; null if memory has run out.
/// Always 0.
ZEL_EXPORT int CreateStreamInMemory(rwStream** stream);
/// Destroys any rwStream; null is allowed. Always 0.
ZEL_EXPORT int DeleteStreamInMemory(rwStream* stream);
}

#endif
