// SPDX-License-Identifier: MIT
#include "sockstream.h"

namespace {

constexpr int areaSize = 4096;

/// The buffers know two results: bytes, or -1 for the end and for failures alike.
int ReadOnce(psockStream* stream, void* data, int length) {
    const int received = stream->Read(data, length, false);
    return received == 0 ? -1 : received;
}

} // namespace

ISockSBuf::ISockSBuf(psockStream& over)
    : zelStreamBufferSize(areaSize), zelStreamBufferBase(nullptr), zelIStreamBuf(areaSize, nullptr),
      stream(&over) {}

ISockSBuf::~ISockSBuf() = default;

int ISockSBuf::Read(void* data, int length) {
    return ReadOnce(stream, data, length);
}

OSockSBuf::OSockSBuf(psockStream& over)
    : zelStreamBufferSize(areaSize), zelStreamBufferBase(nullptr), zelOStreamBuf(areaSize, nullptr),
      stream(&over) {}

OSockSBuf::~OSockSBuf() {
    zelOStreamBuf::flush();
}

int OSockSBuf::Write(const void* data, int length) {
    return stream->Write(data, length, false);
}

IOSockSBuf::IOSockSBuf(psockStream& over)
    : zelStreamBufferSize(areaSize), zelStreamBufferBase(nullptr),
      zelIOStreamBuf(areaSize, nullptr), stream(&over) {}

IOSockSBuf::~IOSockSBuf() {
    zelOStreamBuf::flush();
}

int IOSockSBuf::Read(void* data, int length) {
    return ReadOnce(stream, data, length);
}

int IOSockSBuf::Write(const void* data, int length) {
    return stream->Write(data, length, false);
}

ioSockStream::ioSockStream(psockStream& stream)
    : std::basic_iostream<char>(new IOSockSBuf(stream)) {}

ioSockStream::~ioSockStream() {
    delete rdbuf();
}
