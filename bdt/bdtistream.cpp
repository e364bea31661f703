// SPDX-License-Identifier: MIT
#include "bdtstream.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include "dsstring.h"
#include "mbconv.h"
#include "outside/quillmarsh/multibyte.h"
#include "outside/quillmarsh/sameform.h"

static_assert(sizeof(int) == 4 && sizeof(short) == 2 && sizeof(float) == 4 && sizeof(double) == 8 &&
              std::numeric_limits<double>::is_iec559);

namespace {

using Bytes = std::unique_ptr<char[]>;

struct BlockDeleter {
    void operator()(char* block) const { operator delete(block); }
};

/// No more than this is allocated ahead of the bytes that have arrived: a length is only a claim.
constexpr int pieceSize = 64 * 1024;

Bytes NewBytes(int count) {
    return std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(count));
}

/// Reads `count` bytes into a new block with one more byte behind them, or gives null after a short
/// read.
Bytes TakeBlock(bdtStream& stream, int count) {
    std::vector<Bytes> pieces;
    for (int left = count; left > pieceSize; left -= pieceSize) {
        pieces.push_back(NewBytes(pieceSize));
        if (stream.sgetn(pieces.back().get(), pieceSize) != pieceSize)
            return nullptr;
    }
    const int joined = pieceSize * static_cast<int>(pieces.size());
    Bytes block = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(count) + 1);
    char* target = block.get();
    for (Bytes& piece : pieces) {
        target = std::copy_n(piece.get(), pieceSize, target);
        piece.reset();
    }
    return stream.sgetn(target, count - joined) == count - joined ? std::move(block) : nullptr;
}

} // namespace

bdtIStream::bdtIStream(std::basic_streambuf<char>* newBuffer, int newPortable)
    : bdtStream(newBuffer, newPortable) {}

bdtIStream::bdtIStream() = default;

bdtIStream::~bdtIStream() = default;

/// Reads a number of 4 or 8 bytes into host order; false after a short read.
bool bdtIStream::TakeWord(char* word, int size) {
    if (sgetn(word, size) != size)
        return false;
    if (portable != 0)
        size == 4 ? Swap4(word) : Swap8(word);
    return true;
}

bdtIStream& bdtIStream::operator>>(char& value) {
    sgetn(&value, 1);
    return *this;
}

bdtIStream& bdtIStream::operator>>(unsigned char& value) {
    sgetn(reinterpret_cast<char*>(&value), 1);
    return *this;
}

bdtIStream& bdtIStream::operator>>(short& value) {
    if (portable == 0) {
        char word[sizeof value];
        if (sgetn(word, sizeof word) == sizeof word)
            std::memcpy(&value, word, sizeof value);
        return *this;
    }
    int wide;
    if (TakeWord(reinterpret_cast<char*>(&wide), sizeof wide)) {
        value = static_cast<short>(wide);
        if (value != wide)
            setstate(failbit);
    }
    return *this;
}

bdtIStream& bdtIStream::operator>>(unsigned short& value) {
    if (portable == 0) {
        char word[sizeof value];
        if (sgetn(word, sizeof word) == sizeof word)
            std::memcpy(&value, word, sizeof value);
    } else if (multibyteChars != 0) {
        TakeCharacter(value);
    } else {
        unsigned int wide;
        if (TakeWord(reinterpret_cast<char*>(&wide), sizeof wide))
            value = static_cast<unsigned short>(wide);
    }
    return *this;
}

/// Reads a multibyte character behind its length.
void bdtIStream::TakeCharacter(unsigned short& value) {
    int count;
    if (!TakeWord(reinterpret_cast<char*>(&count), sizeof count))
        return;
    // No character is longer than MB_LEN_MAX. A record that says otherwise is read all the same,
    // so that the next value is found, but never into a block of that size.
    char bytes[4096];
    int left = count;
    for (; left > static_cast<int>(sizeof bytes); left -= static_cast<int>(sizeof bytes))
        if (sgetn(bytes, sizeof bytes) != sizeof bytes)
            return;
    if (left > 0 && sgetn(bytes, left) != left)
        return;
    wchar_t wide = 0;
    if (count < 1 || count > MB_LEN_MAX) {
        setstate(failbit);
        return;
    }
    const int used = zel_mbtowc(&wide, bytes, static_cast<std::size_t>(count));
    const bool isNul = used == 0 && count == 1;
    if ((used != count && !isNul) || static_cast<std::uint32_t>(wide) > USHRT_MAX)
        setstate(failbit);
    else
        value = static_cast<unsigned short>(wide);
}

bdtIStream& bdtIStream::operator>>(int& value) {
    int read;
    if (TakeWord(reinterpret_cast<char*>(&read), sizeof read))
        value = read;
    return *this;
}

bdtIStream& bdtIStream::operator>>(unsigned int& value) {
    unsigned int read;
    if (TakeWord(reinterpret_cast<char*>(&read), sizeof read))
        value = read;
    return *this;
}

bdtIStream& bdtIStream::operator>>(long& value) {
    int read;
    if (TakeWord(reinterpret_cast<char*>(&read), sizeof read))
        value = read;
    return *this;
}

bdtIStream& bdtIStream::operator>>(unsigned long& value) {
    unsigned int read;
    if (TakeWord(reinterpret_cast<char*>(&read), sizeof read))
        value = read;
    return *this;
}

bdtIStream& bdtIStream::operator>>(float& value) {
    char word[sizeof value];
    if (TakeWord(word, sizeof word))
        std::memcpy(&value, word, sizeof value);
    return *this;
}

bdtIStream& bdtIStream::operator>>(double& value) {
    char word[sizeof value];
    if (TakeWord(word, sizeof word))
        std::memcpy(&value, word, sizeof value);
    return *this;
}

bdtIStream& bdtIStream::operator>>(dsString& text) {
    int count;
    if (!TakeWord(reinterpret_cast<char*>(&count), sizeof count))
        return *this;
    if (count < 0) {
        text = static_cast<const char*>(nullptr);
        return *this;
    }
    char few[256];
    if (count < static_cast<int>(sizeof few)) {
        if (sgetn(few, count) == count) {
            few[count] = 0;
            TakeText(few, count, text);
        }
    } else if (const Bytes record = TakeBlock(*this, count)) {
        record[static_cast<std::size_t>(count)] = 0;
        TakeText(record.get(), count, text);
    }
    return *this;
}

/// Assigns the text of a record of `count` bytes, with a NUL behind them.
void bdtIStream::TakeText(const char* record, int count, dsString& text) {
    if (zelSameForm(record, std::strlen(record))) {
        text = record;
        return;
    }
    constexpr std::size_t unconvertible = static_cast<std::size_t>(-1);
    const std::size_t limit = static_cast<std::size_t>(count);
    std::unique_ptr<char, BlockDeleter> converted;
    const char* native = record;
    std::size_t length = limit;
    if (portable != 0) {
        converted.reset(mbxNeutToNative(record));
        native = converted.get();
    } else {
        length = zel_mbstowcs(nullptr, record, limit);
    }
    if (native == nullptr || length == unconvertible) {
        setstate(failbit);
        return;
    }
    const auto wide = std::make_unique_for_overwrite<wchar_t[]>(length + 1);
    wide[length] = 0;
    const std::size_t written = zel_mbstowcs(wide.get(), native, limit);
    if (written == unconvertible || (portable == 0 && written != length))
        setstate(failbit);
    else
        text = dsString(wide.get());
}

bdtIStream& bdtIStream::Read(char*& data, int& length) {
    data = nullptr;
    if (!TakeWord(reinterpret_cast<char*>(&length), sizeof length))
        return *this;
    if (length < 0)
        setstate(failbit);
    else
        data = TakeBlock(*this, length).release();
    return *this;
}
