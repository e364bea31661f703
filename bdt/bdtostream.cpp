// SPDX-License-Identifier: MIT
#include "bdtstream.h"

#include <bit>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "bdt/transfer.h"
#include "mbconv.h"
#include "outside/quillmarsh/multibyte.h"
#include "outside/quillmarsh/sameform.h"

namespace {

struct BlockDeleter {
    void operator()(char* block) const { operator delete(block); }
};

/// The neutral form of a native text: the text itself where the two are the same.
class NeutralText {
public:
    explicit NeutralText(const char* native) : text(native), size(std::strlen(native)) {
        if (zelSameForm(native, size))
            return;
        converted.reset(mbxNativeToNeut(native));
        text = converted.get();
        size = text != nullptr ? std::strlen(text) : 0;
    }
    /// Null if there is none.
    const char* Get() const { return text; }
    std::size_t Size() const { return size; }

private:
    std::unique_ptr<char, BlockDeleter> converted;
    const char* text;
    std::size_t size;
};

/// Writes a length and as many bytes.
void PutRecord(bdtStream& stream, bool swaps, const char* data, std::size_t size) {
    if (size > INT_MAX) {
        stream.setstate(bdtStream::failbit);
        return;
    }
    const auto prefix = static_cast<std::uint32_t>(size);
    // A short record is one transfer.
    char joined[256];
    if (size > sizeof joined - sizeof prefix) {
        bdt::PutWord(stream, swaps, prefix);
        bdt::Put(stream, data, static_cast<int>(size));
        return;
    }
    const std::uint32_t word = swaps ? bdt::Swapped(prefix) : prefix;
    const int total = static_cast<int>(size + sizeof word);
    std::streambuf* const buffer = stream.rdbuf();
    char* const place = buffer != nullptr ? bdt::MemoryArea::Put(*buffer, total) : nullptr;
    char* const target = place != nullptr ? place : joined;
    std::memcpy(target, &word, sizeof word);
    bdt::MemoryArea::Copy(target + sizeof word, data, static_cast<int>(size));
    if (place == nullptr)
        bdt::Put(stream, joined, total);
}

/// Writes the multibyte form of a wide character behind its length.
void PutCharacter(bdtStream& stream, bool swaps, unsigned short value) {
    char bytes[MB_LEN_MAX];
    const int count = zel_wctomb(bytes, static_cast<wchar_t>(value));
    if (count < 0)
        stream.setstate(bdtStream::failbit);
    else
        PutRecord(stream, swaps, bytes, static_cast<std::size_t>(count));
}

} // namespace

bdtOStream::bdtOStream(std::basic_streambuf<char>* newBuffer, int newPortable)
    : bdtStream(newBuffer, newPortable) {}

bdtOStream::bdtOStream() = default;

bdtOStream::~bdtOStream() = default;

bdtOStream& bdtOStream::operator<<(char value) {
    bdt::Put(*this, &value, 1);
    return *this;
}

bdtOStream& bdtOStream::operator<<(unsigned char value) {
    bdt::Put(*this, reinterpret_cast<char*>(&value), 1);
    return *this;
}

bdtOStream& bdtOStream::operator<<(short value) {
    if (portable != 0)
        bdt::PutWord(*this, Swaps(), static_cast<std::uint32_t>(value));
    else
        bdt::Put(*this, reinterpret_cast<char*>(&value), sizeof value);
    return *this;
}

bdtOStream& bdtOStream::operator<<(unsigned short value) {
    if (portable == 0)
        bdt::Put(*this, reinterpret_cast<char*>(&value), sizeof value);
    else if (multibyteChars != 0)
        PutCharacter(*this, Swaps(), value);
    else
        bdt::PutWord(*this, Swaps(), std::uint32_t{value});
    return *this;
}

bdtOStream& bdtOStream::operator<<(int value) {
    bdt::PutWord(*this, Swaps(), static_cast<std::uint32_t>(value));
    return *this;
}

bdtOStream& bdtOStream::operator<<(unsigned int value) {
    bdt::PutWord(*this, Swaps(), static_cast<std::uint32_t>(value));
    return *this;
}

bdtOStream& bdtOStream::operator<<(long value) {
    if (!std::in_range<int>(value))
        setstate(failbit);
    bdt::PutWord(*this, Swaps(), static_cast<std::uint32_t>(value));
    return *this;
}

bdtOStream& bdtOStream::operator<<(unsigned long value) {
    if (!std::in_range<unsigned int>(value))
        setstate(failbit);
    bdt::PutWord(*this, Swaps(), static_cast<std::uint32_t>(value));
    return *this;
}

bdtOStream& bdtOStream::operator<<(float value) {
    bdt::PutWord(*this, Swaps(), std::bit_cast<std::uint32_t>(value));
    return *this;
}

bdtOStream& bdtOStream::operator<<(double value) {
    bdt::PutWord(*this, Swaps(), std::bit_cast<std::uint64_t>(value));
    return *this;
}

bdtOStream& bdtOStream::operator<<(char const* text) {
    if (text == nullptr)
        return *this << -1;
    if (portable == 0) {
        PutRecord(*this, Swaps(), text, std::strlen(text));
        return *this;
    }
    const NeutralText neutral(text);
    if (neutral.Get() == nullptr)
        return *this << -1;
    PutRecord(*this, Swaps(), neutral.Get(), neutral.Size());
    return *this;
}

bdtOStream& bdtOStream::operator<<(wchar_t const* text) {
    if (text == nullptr)
        return *this << -1;
    const std::size_t size = zel_wcstombs(nullptr, text, 0);
    if (size == static_cast<std::size_t>(-1)) {
        setstate(failbit);
        return *this;
    }
    const auto native = std::make_unique_for_overwrite<char[]>(size + 2);
    native[size] = 0;
    if (zel_wcstombs(native.get(), text, size + 2) != size) {
        setstate(failbit);
        return *this << static_cast<int>(size + 1);
    }
    if (portable == 0) {
        PutRecord(*this, Swaps(), native.get(), size + 1);
        return *this;
    }
    const NeutralText neutral(native.get());
    if (neutral.Get() == nullptr)
        return *this << 0;
    PutRecord(*this, Swaps(), neutral.Get(), neutral.Size() + 1);
    return *this;
}

bdtOStream& bdtOStream::operator<<(bdtOStream& (*manipulator)(bdtOStream&)) {
    return manipulator(*this);
}

bdtOStream& bdtOStream::Write(char* data, int length) {
    *this << length;
    bdt::Put(*this, data, length);
    return *this;
}

bdtOStream& flush(bdtOStream& stream) {
    return stream;
}
