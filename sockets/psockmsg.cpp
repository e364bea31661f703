// SPDX-License-Identifier: MIT
#include "psockmsg.h"

#include <algorithm>
#include <climits>
#include <streambuf>

#include "bdtstream.h"

namespace {

constexpr int chunkSize = 4096;
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
    const errstatus status = Write(stream, prefix, prefixSize);
    return status == errOK ? Write(stream, message.GetDataPtr(), length) : status;
}

errstatus Read(psockStream& stream, dsXArray<char>& message) {
    char block[chunkSize];
    const int prefixSize = static_cast<int>(bdtBase::Length(0, portable));
    for (int place = 0; place < prefixSize;) {
        const errstatus status = stream.getErr();
        if (status != errOK)
            return status;
        const int received = stream.Read(block + place, prefixSize - place, false);
        if (received < 0)
            return errSocketRead;
        if (received == 0)
            return EndOf(stream);
        place += received;
    }
    int outstanding = 0;
    BlockBuf buffer(block, prefixSize);
    bdtIStream(&buffer, portable) >> outstanding;
    errstatus status = stream.getErr();
    while (status == errOK && outstanding > 0) {
        // No byte behind the message is taken: it belongs to the next one.
        const int received = stream.Read(block, std::min(chunkSize, outstanding), false);
        if (received < 0)
            return errSocketRead;
        if (received == 0)
            return EndOf(stream);
        message.Append(static_cast<unsigned int>(received), block);
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
