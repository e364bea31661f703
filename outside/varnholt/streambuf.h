// SPDX-License-Identifier: MIT
//
// Stream buffers over a pair of hooks, Read and Write: what moves bytes to and from some place is
// written once in a deriving class, the buffering here. zelIStreamBuf reads, zelOStreamBuf writes,
// zelIOStreamBuf does both with an area for each.
//
// Nothing is allocated before the first byte moves, then an area of the buffer size; or the areas
// lie in a buffer of the caller's, which must outlive the object and which the two areas of a
// zelIOStreamBuf share by halves. A buffer serves one thread at a time.
//
// Requires: a size of at least 1, and of 2 where two areas share it.
//
// No destructor here sends anything: the hook is gone by then. A deriving class that writes calls
// flush() in its own destructor.
#ifndef PLINTH_VARNHOLT_STREAMBUF_H
#define PLINTH_VARNHOLT_STREAMBUF_H

#include <iosfwd>
#include <memory>
#include <streambuf>

#include "outside/zelexport.h"

/// The size of the areas of a stream buffer.
class ZEL_EXPORT zelStreamBufferSize {
public:
    explicit zelStreamBufferSize(int size); ///< in bytes
    virtual ~zelStreamBufferSize();

    /// Stores the size and is true. The stream buffers refuse a size below 1, and any change where
    /// the buffer is the caller's. Otherwise unread bytes stay in the old area until they are
    /// read, and waiting output goes out first; where it cannot, nothing changes.
    virtual bool SetBufferSize(int size);

protected:
    int bufferSize; ///< in bytes
};

/// Where the areas of a stream buffer lie.
class ZEL_EXPORT zelStreamBufferBase {
public:
    explicit zelStreamBufferBase(char* buffer); ///< the caller's, or null
    virtual ~zelStreamBufferBase();

protected:
    char* bufferStart; ///< the caller's buffer, or null
};

/// An area of a stream buffer: in the caller's buffer, or a block of its own.
class zelStreamArea {
public:
    /// Takes `size` bytes from `given`, or from the heap where that is null.
    void Take(char* given, int size);
    void Drop(); ///< gives up what it has taken

    bool IsThere() const { return start != nullptr; } ///< taken and not dropped
    char* Start() const { return start; }             ///< its first byte
    int Size() const { return bytes; }                ///< in bytes

private:
    std::unique_ptr<char[]> own;
    char* start = nullptr;
    int bytes = 0;
};

/// For reading, through the hook Read.
class ZEL_EXPORT zelIStreamBuf : public virtual std::basic_streambuf<char>,
                                 public virtual zelStreamBufferSize,
                                 public virtual zelStreamBufferBase {
public:
    zelIStreamBuf(int size, char* buffer); ///< a null buffer is one of its own
    ~zelIStreamBuf() override;

    bool SetBufferSize(int size) override;

protected:
    /// Provides the area for reading where there is none.
    virtual void doallocate();

    /// Reads up to `length` bytes and gives their number; anything below 1 is the end.
    virtual int Read(void* data, int length) = 0;

    int underflow() override; ///< the next byte, unread; -1 at the end
    /// Nothing can be written: the end, always.
    int overflow(int character) override;
    /// 0: what waits at the other side of the hook cannot be told.
    std::streamsize showmanyc() override;

    zelStreamArea input; ///< the area
};

/// For writing, through the hook Write.
class ZEL_EXPORT zelOStreamBuf : public virtual std::basic_streambuf<char>,
                                 public virtual zelStreamBufferSize,
                                 public virtual zelStreamBufferBase {
public:
    zelOStreamBuf(int size, char* buffer); ///< a null buffer is one of its own
    ~zelOStreamBuf() override;

    bool SetBufferSize(int size) override;

protected:
    /// Provides the area for writing where there is none.
    virtual void doallocate();

    /// Writes up to `length` bytes and gives the number taken; anything below 1 is a failure.
    virtual int Write(const void* data, int length) = 0;

    /// Pushes out what waits: 0, or -1 if not all of it went. The rest is kept.
    int flush();

    int overflow(int character) override; ///< makes room, then stores it; -1 on failure
    std::streamsize xsputn(const char* data, std::streamsize count) override; ///< bytes taken
    /// Nothing can be read: the end, always.
    int underflow() override;
    int sync() override;                  ///< flush()
    std::streamsize showmanyc() override; ///< 0: nothing can be read

    zelStreamArea output; ///< the area
};

/// Output that waits is sent before a read has to wait, so that a request and its answer need no
/// flush between them.
class ZEL_EXPORT zelIOStreamBuf : public zelIStreamBuf, public zelOStreamBuf {
public:
    zelIOStreamBuf(int size, char* buffer); ///< a null buffer is one of its own
    ~zelIOStreamBuf() override;

    bool SetBufferSize(int size) override;

protected:
    void doallocate() override;
    int underflow() override;             ///< flushes before it waits
    int overflow(int character) override; ///< as of a zelOStreamBuf
    std::streamsize showmanyc() override; ///< as of a zelIStreamBuf
};

/// The handle of the descriptor behind a file buffer, -1 if that is closed. It stays the buffer's;
/// what the buffer still holds is not in the file.
ZEL_EXPORT void* zelHandleOfFile(std::basic_filebuf<char>& file);

#endif
