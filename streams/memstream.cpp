// SPDX-License-Identifier: MIT
#include "rwstream.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <new>

namespace {

constexpr int pageSize = 4096;
constexpr char blank = 0x20;

unsigned int PageOf(int offset) {
    return static_cast<unsigned int>(offset) / pageSize;
}
int OffsetInPage(int offset) {
    return offset % pageSize;
}

} // namespace

memStream::memStream() : pages(nullptr), position(0), limit(0) {}

memStream::~memStream() {
    for (unsigned int i = 0; i < pages.GetSize(); ++i)
        delete[] pages[i];
}

errstatus memStream::OpenRead(char const*) {
    return errOK;
}

errstatus memStream::OpenWrite(char const*) {
    return errOK;
}

errstatus memStream::Read(dsXArray<char>& target) {
    target.Resize(static_cast<unsigned int>(limit));
    int count = 0;
    return Read(target.GetDataPtr(), limit, count);
}

errstatus memStream::Read(char* data, int length, int& count) {
    count = 0;
    for (int got = 0; count < length; count += got) {
        Retrieve(data + count, length - count, &got);
        if (got == 0)
            break;
    }
    return errOK;
}

errstatus memStream::Write(dsXArray<char>& source) {
    const unsigned int size = source.GetSize();
    if (size > INT_MAX)
        return errFailed;
    return Write(source.GetDataPtr(), static_cast<int>(size));
}

errstatus memStream::Write(char* data, int length) {
    errstatus status = JumpTo(position);
    if (length < 1)
        return status;
    int stored = 0;
    do {
        if (status != errOK)
            return status;
        status = Store(data, length, &stored);
        data += stored;
        length -= stored;
    } while (length > 0 && stored > 0);
    return status;
}

errstatus memStream::Seek(long offset, int origin) {
    if (origin == 0 && offset == position)
        return errOK;
    if (origin == 1 && offset == 0)
        return errOK;
    long long target = 0;
    if (origin >= 0 && origin <= 2) {
        // No offset that an int cannot hold leads to a place that it can.
        if (static_cast<int>(offset) != offset)
            return errOutOfRange;
        if (origin == 0)
            target = offset;
        else if (origin == 1)
            target = static_cast<long long>(position) + offset;
        else
            target = static_cast<long long>(limit) - offset - 1;
    }
    // On a stream that was never written, limit - 1 is the largest number.
    if (target < 0 || target > INT_MAX ||
        static_cast<unsigned int>(target) > static_cast<unsigned int>(limit) - 1)
        return errOutOfRange;
    return JumpTo(std::fpos<int>(target));
}

errstatus memStream::GetPos(std::fpos<int>& place) {
    place = std::fpos<int>(position);
    return errOK;
}

/// Makes sure that the page of `place` exists, which on a boundary is the one that begins there,
/// and moves the position.
errstatus memStream::JumpTo(std::fpos<int> place) {
    const int target = static_cast<int>(static_cast<std::streamoff>(place));
    while (pages.GetSize() <= PageOf(target)) {
        std::unique_ptr<char[]> page(new (std::nothrow) char[pageSize]);
        if (!page)
            return errFailed;
        std::memset(page.get(), blank, pageSize);
        pages += page.get();
        page.release();
    }
    position = target;
    return errOK;
}

/// The step of a write: as much as the current page, which exists, can take.
errstatus memStream::Store(char* data, int length, int* stored) {
    const int offset = OffsetInPage(position);
    const int count = std::min(length, pageSize - offset);
    *stored = 0;
    if (count > INT_MAX - 1 - position) // the limit counts one more
        return errFailed;
    std::memcpy(pages[PageOf(position)] + offset, data, static_cast<std::size_t>(count));
    *stored = count;
    limit = std::max(limit, position + count + 1);
    return JumpTo(position + count);
}

/// The step of a read: as much as the current page holds of what can be seen. The page's address
/// is worked out only when there is something to copy: a stream may have been sought to where it
/// has nothing, and where memory ran out behind a write, the page behind the data is missing.
errstatus memStream::Retrieve(char* data, int length, int* got) {
    const int offset = OffsetInPage(position);
    const int count = std::min({pageSize - offset, limit - position, length});
    *got = 0;
    if (count > 0 && PageOf(position) < pages.GetSize()) {
        std::memcpy(data, pages[PageOf(position)] + offset, static_cast<std::size_t>(count));
        *got = count;
        position += count;
    }
    return errOK;
}

int CreateStreamInMemory(rwStream** stream) {
    *stream = new (std::nothrow) memStream;
    return 0;
}

int DeleteStreamInMemory(rwStream* stream) {
    delete stream;
    return 0;
}
