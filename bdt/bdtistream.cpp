// SPDX-License-Identifier: MIT
#include "bdtstream.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "bdt/transfer.h"
#include "ds/ownedtext.h"
#include "dsstring.h"
#include "mbconv.h"
#include "outside/quillmarsh/multibyte.h"
#include "outside/quillmarsh/sameform.h"

namespace {

using Bytes = std::unique_ptr<char[]>;

struct BlockDeleter {
    void operator()(char* block) const { operator delete(block); }
};

/// No more than this is allocated ahead of the bytes that have arrived: a length is only a claim.
constexpr int pieceSize = 64 * 1024;

/// Reads `count` bytes into a new block with one more byte behind them, piece by piece, or gives
/// null after a short read.
Bytes TakePieces(bdtStream& stream, int count) {
    std::vector<Bytes> pieces;
    for (int left = count; left > pieceSize; left -= pieceSize) {
        pieces.push_back(std::make_unique_for_overwrite<char[]>(pieceSize));
        if (bdt::Take(stream, pieces.back().get(), pieceSize) != pieceSize)
            return nullptr;
    }
    const int joined = pieceSize * static_cast<int>(pieces.size());
    Bytes block = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(count) + 1);
    char* target = block.get();
    for (Bytes& piece : pieces) {
        target = std::copy_n(piece.get(), pieceSize, target);
        piece.reset();
    }
    return bdt::Take(stream, target, count - joined) == count - joined ? std::move(block) : nullptr;
}

/// The same; what is no longer than a piece takes its way alone.
inline Bytes TakeBlock(bdtStream& stream, int count) {
    if (count > pieceSize)
        return TakePieces(stream, count);
    Bytes block = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(count) + 1);
    return bdt::Take(stream, block.get(), count) == count ? std::move(block) : nullptr;
}

/// Reads a multibyte character behind its length.
void TakeCharacter(bdtStream& stream, bool swaps, unsigned short& value) {
    int count;
    if (!bdt::TakeNumber(stream, swaps, count))
        return;
    // No character is longer than MB_LEN_MAX. A record that says otherwise is read all the same,
    // so that the next value is found, but never into a block of that size.
    char bytes[4096];
    constexpr int room = sizeof bytes;
    int left = count;
    for (; left > room; left -= room)
        if (bdt::Take(stream, bytes, room) != room)
            return;
    if (left > 0 && bdt::Take(stream, bytes, left) != left)
        return;
    if (count < 1 || count > MB_LEN_MAX) {
        stream.setstate(bdtStream::failbit);
        return;
    }
    wchar_t wide = 0;
    const int used = zel_mbtowc(&wide, bytes, static_cast<std::size_t>(count));
    const bool isNul = used == 0 && count == 1;
    if ((used != count && !isNul) || static_cast<std::uint32_t>(wide) > USHRT_MAX)
        stream.setstate(bdtStream::failbit);
    else
        value = static_cast<unsigned short>(wide);
}

/// Assigns the text of a record of `size` bytes, behind which a NUL stands, by way of wide text.
void ConvertText(bdtStream& stream, bool portable, const char* record, std::size_t size,
                 dsString& text) {
    constexpr std::size_t unconvertible = static_cast<std::size_t>(-1);
    std::unique_ptr<char, BlockDeleter> converted;
    const char* native = record;
    std::size_t length = size;
    if (portable) {
        converted.reset(mbxNeutToNative(record));
        native = converted.get();
    } else {
        length = zel_mbstowcs(nullptr, record, size);
    }
    if (native == nullptr || length == unconvertible) {
        stream.setstate(bdtStream::failbit);
        return;
    }
    const auto wide = std::make_unique_for_overwrite<wchar_t[]>(length + 1);
    wide[length] = 0;
    const std::size_t written = zel_mbstowcs(wide.get(), native, size);
    if (written == unconvertible || (!portable && written != length))
        stream.setstate(bdtStream::failbit);
    else
        text = dsString(wide.get());
}

/// Reads the text of a record of `size` bytes, which may be in memory already. Apart from the short
/// way, which has less to save without it.
[[gnu::noinline]] void TakeText(bdtStream& stream, bool portable, const char* inMemory,
                                std::size_t size, dsString& text) {
    Bytes record;
    if (inMemory != nullptr) {
        record = std::make_unique_for_overwrite<char[]>(size + 1);
        std::memcpy(record.get(), inMemory, size);
    } else {
        record = TakeBlock(stream, static_cast<int>(size));
    }
    if (record == nullptr)
        return;
    record[size] = 0;
    if (!zelSameForm(record.get(), size))
        ConvertText(stream, portable, record.get(), size, text);
    else if (std::strlen(record.get()) == size)
        OwnedText::Adopt(text, std::move(record));
    else
        text = record.get();
}

} // namespace

bdtIStream::bdtIStream(std::basic_streambuf<char>* newBuffer, int newPortable)
    : bdtStream(newBuffer, newPortable) {}

bdtIStream::bdtIStream() = default;

bdtIStream::~bdtIStream() = default;

bdtIStream& bdtIStream::operator>>(char& value) {
    bdt::Take(*this, &value, 1);
    return *this;
}

bdtIStream& bdtIStream::operator>>(unsigned char& value) {
    bdt::Take(*this, reinterpret_cast<char*>(&value), 1);
    return *this;
}

bdtIStream& bdtIStream::operator>>(short& value) {
    if (portable == 0) {
        short read;
        if (bdt::Take(*this, reinterpret_cast<char*>(&read), sizeof read) == sizeof read)
            value = read;
        return *this;
    }
    int wide;
    if (bdt::TakeNumber(*this, Swaps(), wide)) {
        value = static_cast<short>(wide);
        if (value != wide)
            setstate(failbit);
    }
    return *this;
}

bdtIStream& bdtIStream::operator>>(unsigned short& value) {
    if (portable == 0) {
        unsigned short read;
        if (bdt::Take(*this, reinterpret_cast<char*>(&read), sizeof read) == sizeof read)
            value = read;
    } else if (multibyteChars != 0) {
        TakeCharacter(*this, Swaps(), value);
    } else {
        unsigned int wide;
        if (bdt::TakeNumber(*this, Swaps(), wide))
            value = static_cast<unsigned short>(wide);
    }
    return *this;
}

bdtIStream& bdtIStream::operator>>(int& value) {
    bdt::TakeNumber(*this, Swaps(), value);
    return *this;
}

bdtIStream& bdtIStream::operator>>(unsigned int& value) {
    bdt::TakeNumber(*this, Swaps(), value);
    return *this;
}

bdtIStream& bdtIStream::operator>>(long& value) {
    int read;
    if (bdt::TakeNumber(*this, Swaps(), read))
        value = read;
    return *this;
}

bdtIStream& bdtIStream::operator>>(unsigned long& value) {
    unsigned int read;
    if (bdt::TakeNumber(*this, Swaps(), read))
        value = read;
    return *this;
}

bdtIStream& bdtIStream::operator>>(float& value) {
    bdt::TakeNumber(*this, Swaps(), value);
    return *this;
}

bdtIStream& bdtIStream::operator>>(double& value) {
    bdt::TakeNumber(*this, Swaps(), value);
    return *this;
}

bdtIStream& bdtIStream::operator>>(dsString& text) {
    int count;
    if (!bdt::TakeNumber(*this, Swaps(), count))
        return *this;
    if (count < 0) {
        text = static_cast<const char*>(nullptr);
        return *this;
    }
    // Plain text in memory takes no block in between.
    const auto size = static_cast<std::size_t>(count);
    const char* const inMemory =
        buffer != nullptr ? bdt::MemoryArea::Take(*buffer, count) : nullptr;
    if (inMemory != nullptr && zelPlainText(inMemory, size))
        OwnedText::Assign(text, inMemory, size);
    else
        TakeText(*this, portable != 0, inMemory, size, text);
    return *this;
}

bdtIStream& bdtIStream::Read(char*& data, int& length) {
    data = nullptr;
    int count;
    if (!bdt::TakeNumber(*this, Swaps(), count))
        return *this;
    length = count;
    if (count < 0)
        setstate(failbit);
    else
        data = TakeBlock(*this, count).release();
    return *this;
}
