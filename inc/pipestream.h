// SPDX-License-Identifier: MIT
//
// Byte streams over anonymous pipes.
//
// CreatePipeSt makes a pipe and gives its two ends as standard streams; DeletePipe takes an end
// down again, stream, buffer and descriptor. zelPipeBuf is a stream buffer of its own for any
// pipe handle: it never blocks on an empty pipe.
//
// A stream or buffer belongs to one thread at a time; the two ends of a pipe may be used from
// different threads or processes. Writing blocks while the pipe is full, so a thread that holds
// both ends can wait for itself. Writing to a pipe that nobody reads any more sets badbit; it
// raises no signal.
#ifndef PLINTH_PIPESTREAM_H
#define PLINTH_PIPESTREAM_H

#include <istream>
#include <ostream>
#include <streambuf>

#include "errstatus.h"
#include "outside/varnholt/events.h"
#include "outside/varnholt/pipes.h"
#include "outside/zelexport.h"

/// A stream buffer over one pipe end, which never blocks for reading: where other buffers wait
/// for bytes, its underflow gives EOF, and the caller clears the stream and asks again later.
/// at_end() tells whether there is any point in that. Writing does block while the pipe is full.
///
/// One block of 8192 bytes serves both directions; 4096 bytes is the most that one read or one
/// write moves. After a failed write the bytes stay pending.
class ZEL_EXPORT zelPipeBuf : public std::basic_streambuf<char> {
public:
    /// No handle yet. The argument has no meaning.
    explicit zelPipeBuf(bool ignored);
    zelPipeBuf(const zelPipeBuf&) = delete;
    zelPipeBuf& operator=(const zelPipeBuf&) = delete;
    /// Closes the handle. Pending output is lost: sync first.
    ~zelPipeBuf() override;

    /// Takes the handle over. A buffer takes one in its life: false, and nothing changes, after
    /// that.
    bool setIOCtrlHandle(void* pipe);
    /// 1 once there is a handle, else 0.
    int is_attached();
    /// True when reading has come to its end: no unread byte here or in the pipe, and no writer.
    bool at_end();
    /// Makes the block, both areas empty: 1, or 0 if there is one.
    int doallocate();

protected:
    /// Writes what is pending, then stores `c`: `c`; 1 for an EOF; -1 when the write falls short.
    int_type overflow(int_type c = traits_type::eof()) override;
    /// The next byte, or -1 when there is none now or the pipe is broken.
    int_type underflow() override;
    /// Drops unread input and writes what is pending: 1, or -1 when the write falls short.
    int sync() override;

private:
    bool FlushPutArea();

    void* handle;
    char* buffer;
    int getAreaSize;
    bool attached;
};

class iPipeStream;
class oPipeStream;

/// Makes a pipe. The two ends are the caller's, to be released with DeletePipe. errPipeFailed, and
/// both arguments untouched, when there is none to be had.
ZEL_EXPORT errstatus CreatePipeSt(oPipeStream** out, iPipeStream** in);

/// Releases a stream, its buffer and the pipe end. The stream must not be null.
ZEL_EXPORT void DeletePipe(iPipeStream* stream);
ZEL_EXPORT void DeletePipe(oPipeStream* stream); ///< writes out what waits first

/// The read end of a pipe as a stream. The stream does not own its buffer: see DeletePipe.
///
/// Reading blocks until bytes come or all writers are gone, but readsome() never does: it gives
/// what is there, nothing for an empty pipe, and sets eofbit at the end.
class ZEL_EXPORT iPipeStream : public std::basic_istream<char> {
public:
    ~iPipeStream() override;

    zelIPipeSBuf* rdbuf() const { return buffer; } ///< the buffer, which the stream does not own

    /// A new event that fires when the pipe has bytes or has ended; the caller deletes it, before
    /// the stream. Bytes that the stream has buffered already do not fire it: take all that
    /// readsome() gives before waiting.
    zelEvent* GetReadEvent();

private:
    friend errstatus CreatePipeSt(oPipeStream** out, iPipeStream** in);
    explicit iPipeStream(zelIPipeSBuf* source);

    zelIPipeSBuf* buffer;
};

/// The write end of a pipe as a stream. The stream does not own its buffer: see DeletePipe.
class ZEL_EXPORT oPipeStream : public std::basic_ostream<char> {
public:
    /// Flushes the stream.
    ~oPipeStream() override;

    zelOPipeSBuf* rdbuf() const { return buffer; } ///< the buffer, which the stream does not own

private:
    friend errstatus CreatePipeSt(oPipeStream** out, iPipeStream** in);
    explicit oPipeStream(zelOPipeSBuf* sink);

    zelOPipeSBuf* buffer;
};

/// Fires when its stream's pipe has bytes or has ended. The stream must outlive it.
class ZEL_EXPORT zelIPipeEvent : public zelPipeEvent {
public:
    /// Requires: `source` has a buffer.
    explicit zelIPipeEvent(iPipeStream* source);

    /// The event as one of this class, or null if it is of another. Requires: not null.
    static zelIPipeEvent* cast(zelEvent* event);

private:
    int GetKind() override;
    void* GetInfo() override;

    static const int eventKind;

    [[maybe_unused]] iPipeStream* stream; // for whoever looks at the event in a debugger
};

#endif
