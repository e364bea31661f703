// SPDX-License-Identifier: MIT
#include "psockmsg.h"

#include <algorithm>
#include <climits>
#include <streambuf>

#include "bdtstream.h"
#include "outside/quillmarsh/memory.h"
#include "sockets/psockstreamimpl.h"

namespace {

constexpr int chunkSize = 4096;
/// How far an array may grow ahead of what has arrived, with room to round it up to blocks.
constexpr int aheadSize = 60 << 10;
constexpr int portable = 1;

/// A stream buffer over a block of the caller's, for both directions.
class BlockBuf : public std::streambuf {
public:
    BlockBuf(char* block, int size) {
        setg(block, block, block + size);
        setp(block, block + size);
    }
};

/// What an exchange ends with that moved nothing: the cause, if the stream has recorded one.
errstatus EndOf(psockStream& stream) {
    const errstatus recorded = stream.getErr();
    return recorded != errOK ? recorded : errSocketRead;
}

/// The stream as the one over a socket of the system, null for any other. Not by dynamic_cast: a
/// class that derives from psockStream may be compiled without type information.
psockStreamImpl* OwnStream(psockStream& stream) {
    return dsIsExactly<psockStreamImpl>(stream) ? static_cast<psockStreamImpl*>(&stream) : nullptr;
}

/// Sends a prefix and the payload behind it.
errstatus WriteFramed(psockStream& stream, const char* prefix, int prefixSize,
                      dsXArray<char>& message, int length) {
    int sent = 0;
    if (psockStreamImpl* const own = OwnStream(stream)) {
        // What it writes nobody sees but the peer, to whom it is one piece.
        if (own->getErr() != errOK)
            return own->getErr();
        sent = own->WriteBoth(prefix, prefixSize, message.GetDataPtr(), length);
        if (sent <= 0)
            return EndOf(stream);
    }
    const int begun = std::min(sent, prefixSize);
    const errstatus status = Write(stream, prefix + begun, prefixSize - begun);
    if (status != errOK)
        return status;
    return Write(stream, message.GetDataPtr() + (sent - begun), length - (sent - begun));
}

/// Receives and appends up to `outstanding` bytes, with one call: how many.
int Append(psockStream& stream, dsXArray<char>& message, int outstanding) {
    if (OwnStream(stream) == nullptr || !dsIsExactly<dsXArray<char>>(message)) {
        char block[chunkSize];
        const int received = stream.Read(block, std::min(chunkSize, outstanding), false);
        if (received > 0)
            message.Append(static_cast<unsigned int>(received), block);
        return received;
    }
    // Nobody sees where a socket of the system reads to: into the array itself, unless what derives
    // from the array sees how elements come in.
    const unsigned int held = message.GetSize();
    const int most = std::min(aheadSize, outstanding);
    if (static_cast<unsigned int>(most) > UINT_MAX - held)
        zelOutOfMemory();
    message.Resize(held + static_cast<unsigned int>(most));
    const int received = stream.Read(message.GetDataPtr() + held, most, false);
    message.Resize(held + static_cast<unsigned int>(std::max(received, 0)));
    return received;
}

} // namespace

errstatus Write(psockStream& stream, const char* data, int length) {
    errstatus status = stream.getErr();
    while (status == errOK && length > 0) {
        const int sent = stream.Write(data, length, false);
        if (sent <= 0)
            return EndOf(stream);
        data += sent;
        length -= sent;
        status = stream.getErr();
    }
    return status;
}

errstatus Read(psockStream& stream, char* data, int& length) {
    int outstanding = length;
    errstatus status = stream.getErr();
    while (status == errOK && outstanding > 0) {
        const int received = stream.Read(data, outstanding, false);
        if (received > 0) {
            data += received;
            outstanding -= received;
            status = stream.getErr();
        } else {
            status = EndOf(stream);
        }
    }
    length -= outstanding;
    return status;
}

errstatus Write(psockStream& stream, dsXArray<char>& message) {
    const unsigned int count = message.GetSize();
    if (count > INT_MAX)
        return errTooLarge;
    const int length = static_cast<int>(count);
    const int prefixSize = static_cast<int>(bdtBase::Length(length, portable));
    char prefix[sizeof length];
    BlockBuf buffer(prefix, prefixSize);
    bdtOStream(&buffer, portable) << length;
    return WriteFramed(stream, prefix, prefixSize, message, length);
}

errstatus Read(psockStream& stream, dsXArray<char>& message) {
    char prefix[sizeof(int)];
    const int prefixSize = static_cast<int>(bdtBase::Length(0, portable));
    for (int place = 0; place < prefixSize;) {
        const errstatus status = stream.getErr();
        if (status != errOK)
            return status;
        const int received = stream.Read(prefix + place, prefixSize - place, false);
        if (received < 0)
            return errSocketRead;
        if (received == 0)
            return EndOf(stream);
        place += received;
    }
    int outstanding = 0;
    BlockBuf buffer(prefix, prefixSize);
    bdtIStream(&buffer, portable) >> outstanding;
    errstatus status = stream.getErr();
    while (status == errOK && outstanding > 0) {
        // No byte behind the message is taken: it belongs to the next one.
        const int received = Append(stream, message, outstanding);
        if (received < 0)
            return errSocketRead;
        if (received == 0)
            return EndOf(stream);
        outstanding -= received;
        status = stream.getErr();
    }
    return status;
}

int ReadFromSocket(psockStream& stream, void* data, int length) {
    const int received = stream.Read(data, length, false);
    return received == 0 ? -1 : received;
}

int WriteToSocket(psockStream& stream, const void* data, int length) {
    return stream.Write(data, length, false);
}
