// SPDX-License-Identifier: MIT
//
// Standard streams over a socket: stream buffers that read from and write to a psockStream, and a
// ready iostream.
//
// The psockStream must outlive the buffer or stream over it, which never closes it; a failure
// stays recorded in its getErr(). Each buffer has areas of 4096 bytes, serves one thread at a
// time, and cannot tell what waits in the socket: in_avail() counts what has been read ahead.
#ifndef PLINTH_SOCKSTREAM_H
#define PLINTH_SOCKSTREAM_H

#include <istream>

#include "outside/varnholt/streambuf.h"
#include "outside/zelexport.h"
#include "psock.h"

/// Reads from a socket. What was read ahead is lost with the buffer.
class ZEL_EXPORT ISockSBuf : public zelIStreamBuf {
public:
    explicit ISockSBuf(psockStream& stream); ///< `stream` is not owned
    ~ISockSBuf() override;

private:
    int Read(void* data, int length) override;

    psockStream* stream;
};

/// Writes to a socket. What waits is sent when the buffer is destroyed; whether that works, nobody
/// learns: call pubsync() before.
class ZEL_EXPORT OSockSBuf : public zelOStreamBuf {
public:
    explicit OSockSBuf(psockStream& stream); ///< `stream` is not owned
    ~OSockSBuf() override;

private:
    int Write(const void* data, int length) override;

    psockStream* stream;
};

/// Reads and writes; the two directions have an area each. Output that waits goes out before a
/// read has to wait, and when the buffer is destroyed.
class ZEL_EXPORT IOSockSBuf : public zelIOStreamBuf {
public:
    explicit IOSockSBuf(psockStream& stream); ///< `stream` is not owned
    ~IOSockSBuf() override;

private:
    int Read(void* data, int length) override;
    int Write(const void* data, int length) override;

    psockStream* stream;
};

/// An iostream over an IOSockSBuf of its own. It deletes whatever rdbuf() gives in the end, so
/// after rdbuf(other) that is `other`, and the first buffer is the caller's.
class ZEL_EXPORT ioSockStream : public std::basic_iostream<char> {
public:
    explicit ioSockStream(psockStream& stream); ///< `stream` is not owned
    ~ioSockStream() override;
};

#endif
