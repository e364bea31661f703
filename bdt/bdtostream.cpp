// SPDX-License-Identifier: MIT
#include "bdtstream.h"

#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

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

} // namespace

bdtOStream::bdtOStream(std::basic_streambuf<char>* newBuffer, int newPortable)
    : bdtStream(newBuffer, newPortable) {}

bdtOStream::bdtOStream() = default;

bdtOStream::~bdtOStream() = default;

/// Writes a number of 4 or 8 bytes in host order, which it may swap in place.
void bdtOStream::PutWord(char* word, int size) {
    if (portable != 0)
        size == 4 ? Swap4(word) : Swap8(word);
    sputn(word, size);
}

/// Writes a length and as many bytes.
void bdtOStream::PutRecord(const char* data, std::size_t size) {
    if (size > INT_MAX) {
        setstate(failbit);
        return;
    }
    *this << static_cast<int>(size);
    sputn(const_cast<char*>(data), static_cast<int>(size));
}

bdtOStream& bdtOStream::operator<<(char value) {
    sputn(&value, 1);
    return *this;
}

bdtOStream& bdtOStream::operator<<(unsigned char value) {
    sputn(reinterpret_cast<char*>(&value), 1);
    return *this;
}

bdtOStream& bdtOStream::operator<<(short value) {
    if (portable != 0)
        return *this << static_cast<int>(value);
    sputn(reinterpret_cast<char*>(&value), sizeof value);
    return *this;
}

bdtOStream& bdtOStream::operator<<(unsigned short value) {
    if (portable == 0)
        sputn(reinterpret_cast<char*>(&value), sizeof value);
    else if (multibyteChars != 0)
        PutCharacter(value);
    else
        *this << static_cast<unsigned int>(value);
    return *this;
}

/// Writes the multibyte form of a wide character behind its length.
void bdtOStream::PutCharacter(unsigned short value) {
    char bytes[MB_LEN_MAX];
    const int count = zel_wctomb(bytes, static_cast<wchar_t>(value));
    if (count < 0)
        setstate(failbit);
    else
        PutRecord(bytes, static_cast<std::size_t>(count));
}

bdtOStream& bdtOStream::operator<<(int value) {
    PutWord(reinterpret_cast<char*>(&value), sizeof value);
    return *this;
}

bdtOStream& bdtOStream::operator<<(unsigned int value) {
    PutWord(reinterpret_cast<char*>(&value), sizeof value);
    return *this;
}

bdtOStream& bdtOStream::operator<<(long value) {
    if (!std::in_range<int>(value))
        setstate(failbit);
    return *this << static_cast<int>(value);
}

bdtOStream& bdtOStream::operator<<(unsigned long value) {
    if (!std::in_range<unsigned int>(value))
        setstate(failbit);
    return *this << static_cast<unsigned int>(value);
}

bdtOStream& bdtOStream::operator<<(float value) {
    PutWord(reinterpret_cast<char*>(&value), sizeof value);
    return *this;
}

bdtOStream& bdtOStream::operator<<(double value) {
    PutWord(reinterpret_cast<char*>(&value), sizeof value);
    return *this;
}

bdtOStream& bdtOStream::operator<<(char const* text) {
    if (text == nullptr)
        return *this << -1;
    if (portable == 0) {
        PutRecord(text, std::strlen(text));
        return *this;
    }
    const NeutralText neutral(text);
    if (neutral.Get() == nullptr)
        return *this << -1;
    PutRecord(neutral.Get(), neutral.Size());
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
        PutRecord(native.get(), size + 1);
        return *this;
    }
    const NeutralText neutral(native.get());
    if (neutral.Get() == nullptr)
        return *this << 0;
    PutRecord(neutral.Get(), neutral.Size() + 1);
    return *this;
}

bdtOStream& bdtOStream::operator<<(bdtOStream& (*manipulator)(bdtOStream&)) {
    return manipulator(*this);
}

bdtOStream& bdtOStream::Write(char* data, int length) {
    *this << length;
    sputn(data, length);
    return *this;
}

bdtOStream& flush(bdtOStream& stream) {
    return stream;
}
