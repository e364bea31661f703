// SPDX-License-Identifier: MIT
#include "rwstream.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <new>

#include "streams/memstreamline.h"

namespace {

constexpr int pageSize = 4096;
constexpr char blank = 0x20;

unsigned int PageOf(int offset) {
    return static_cast<unsigned int>(offset) / pageSize;
}
int OffsetInPage(int offset) {
    return static_cast<int>(static_cast<unsigned int>(offset) % pageSize);
}

/// The byte at `offset`, whose page exists.
char* At(const dsXArray<char*>& pages, int offset) {
    // Named in full, it is no virtual call.
    return pages.dsXArray<char*>::GetDataPtr()[PageOf(offset)] + OffsetInPage(offset);
}

/// Copies within a page. Where memcpy knows that there is little, the compiler puts an instruction
/// in its place that takes longer to begin than most copies take.
void Copy(char* target, const char* source, int count) {
    std::memmove(target, source, static_cast<std::size_t>(count));
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
    errstatus status = PageOf(position) < pages.GetSize() ? errOK : JumpTo(position);
    for (int stored = 1; status == errOK && length > 0 && stored > 0; length -= stored) {
        status = Store(data, length, &stored);
        data += stored;
    }
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
///
/// Nobody reads at or behind the limit. Once there is data, a page is added where the data ends,
/// and of all its bytes only the first can be read before it is written; until then, all can.
errstatus memStream::JumpTo(std::fpos<int> place) {
    const int target = static_cast<int>(static_cast<std::streamoff>(place));
    while (pages.GetSize() <= PageOf(target)) {
        std::unique_ptr<char[]> page(new (std::nothrow) char[pageSize]);
        if (!page)
            return errFailed;
        std::memset(page.get(), blank, limit == 0 ? pageSize : 1);
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
    char* const target = At(pages, position);
    Copy(target, data, count);
    *stored = count;
    const int end = position + count;
    const bool grows = end >= limit;
    if (grows)
        limit = end + 1;
    if (offset + count == pageSize)
        return JumpTo(end);
    if (grows)
        target[count] = blank;
    position = end;
    return errOK;
}

/// The step of a read: as much as the current page holds of what can be seen. The page's address
/// is worked out only when there is something to copy: a stream may have been sought to where it
/// has nothing, and where memory ran out behind a write, the page behind the data is missing.
errstatus memStream::Retrieve(char* data, int length, int* got) {
    const int count = std::min({pageSize - OffsetInPage(position), limit - position, length});
    *got = 0;
    if (count > 0 && PageOf(position) < pages.GetSize()) {
        Copy(data, At(pages, position), count);
        *got = count;
        position += count;
    }
    return errOK;
}

void memStreamLine::Take(memStream& stream, dsXArray<char>& line, char delimiter) {
    unsigned int length = 0;
    const char* found = nullptr;
    do {
        int count =
            std::min(pageSize - OffsetInPage(stream.position), stream.limit - stream.position);
        if (count <= 0 || PageOf(stream.position) >= stream.pages.GetSize())
            break;
        const char* const text = At(stream.pages, stream.position);
        found =
            static_cast<const char*>(std::memchr(text, delimiter, static_cast<std::size_t>(count)));
        if (found != nullptr)
            count = static_cast<int>(found - text);
        stream.position += count + (found != nullptr ? 1 : 0);
        line.Resize(length + static_cast<unsigned int>(count) + 1);
        Copy(line.GetDataPtr() + length, text, count);
        length += static_cast<unsigned int>(count);
    } while (found == nullptr);
    line.Resize(length + 1);
    line.GetDataPtr()[length] = '\0';
}

int CreateStreamInMemory(rwStream** stream) {
    *stream = new (std::nothrow) memStream;
    return 0;
}

int DeleteStreamInMemory(rwStream* stream) {
    delete stream;
    return 0;
}
