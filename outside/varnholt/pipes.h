// SPDX-License-Identifier: MIT
//
// Anonymous pipes and the stream buffers over their two ends.
#ifndef PLINTH_VARNHOLT_PIPES_H
#define PLINTH_VARNHOLT_PIPES_H

#include "outside/varnholt/streambuf.h"
#include "outside/zelexport.h"

class zelInputPipe;
class zelOutputPipe;

/// One end of a pipe: its handle, and nothing more. A copy is the same end; whoever takes an end
/// over (a stream buffer does) closes it.
class ZEL_EXPORT zelAnonymousPipe {
public:
    /// No pipe: the handle is -1.
    zelAnonymousPipe();

    /// The handle of this end: descriptor * 2 + 1, in a word.
    void* fd() const { return handle; }

    /// Makes a pipe. Neither end is inherited by programs that this process starts. False, with
    /// the system's error in place and both arguments untouched, when there is none to be had.
    static bool Create(zelOutputPipe& writeEnd, zelInputPipe& readEnd);

protected:
    explicit zelAnonymousPipe(void* end) : handle(end) {} ///< that end

private:
    void* handle;
};

/// The read end.
class ZEL_EXPORT zelInputPipe : public zelAnonymousPipe {
public:
    zelInputPipe() = default;
    explicit zelInputPipe(void* end) : zelAnonymousPipe(end) {} ///< that end
};

/// The write end.
class ZEL_EXPORT zelOutputPipe : public zelAnonymousPipe {
public:
    zelOutputPipe() = default;
    explicit zelOutputPipe(void* end) : zelAnonymousPipe(end) {} ///< that end
};

/// Reads from a pipe, large blocks straight into the caller's memory. It owns the end and closes
/// it. An empty pipe blocks underflow; in_avail (and so readsome) does not block and knows what
/// waits in the pipe, and -1 is its end.
class ZEL_EXPORT zelIPipeSBuf : public zelIStreamBuf {
public:
    explicit zelIPipeSBuf(zelInputPipe end); ///< takes it over
    ~zelIPipeSBuf() override;

    zelInputPipe pipe() const { return end; } ///< still the buffer's

protected:
    /// Waits for all of `count` bytes; fewer at the end.
    std::streamsize xsgetn(char* target, std::streamsize count) override;
    std::streamsize showmanyc() override; ///< what waits in the pipe; -1 is its end

private:
    int Read(void* data, int length) override;

    zelInputPipe end;
};

/// Writes to a pipe, large blocks straight from the caller's memory, blocking while it is full. It
/// owns the end; the destructor writes out what is pending and closes it.
class ZEL_EXPORT zelOPipeSBuf : public zelOStreamBuf {
public:
    explicit zelOPipeSBuf(zelOutputPipe end); ///< takes it over
    ~zelOPipeSBuf() override;

    zelOutputPipe pipe() const { return end; } ///< still the buffer's

protected:
    /// Waits until the pipe has taken all of `count` bytes; fewer on failure.
    std::streamsize xsputn(const char* source, std::streamsize count) override;

private:
    int Write(void const* data, int length) override;

    zelOutputPipe end;
};

#endif
