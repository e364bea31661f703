// SPDX-License-Identifier: MIT
#include "outside/varnholt/streambuf.h"

#include <cstring>

namespace {
using Traits = std::char_traits<char>;
}

zelStreamBufferSize::zelStreamBufferSize(int size) : bufferSize(size) {}

zelStreamBufferSize::~zelStreamBufferSize() = default;

bool zelStreamBufferSize::SetBufferSize(int size) {
    bufferSize = size;
    return true;
}

zelStreamBufferBase::zelStreamBufferBase(char* buffer) : bufferStart(buffer) {}

zelStreamBufferBase::~zelStreamBufferBase() = default;

void zelStreamArea::Take(char* given, int size) {
    if (given == nullptr) {
        own = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(size));
        given = own.get();
    }
    start = given;
    bytes = size;
}

void zelStreamArea::Drop() {
    start = nullptr;
    own.reset();
}

zelIStreamBuf::zelIStreamBuf(int size, char* buffer)
    : zelStreamBufferSize(size), zelStreamBufferBase(buffer) {}

zelIStreamBuf::~zelIStreamBuf() = default;

bool zelIStreamBuf::SetBufferSize(int size) {
    return size > 0 && bufferStart == nullptr && zelStreamBufferSize::SetBufferSize(size);
}

void zelIStreamBuf::doallocate() {
    if (!input.IsThere())
        input.Take(bufferStart, bufferSize);
}

int zelIStreamBuf::underflow() {
    if (gptr() != egptr())
        return Traits::to_int_type(*gptr());
    if (bufferStart == nullptr && input.Size() != bufferSize) {
        setg(nullptr, nullptr, nullptr); // the size has changed, and nothing there is unread
        input.Drop();
    }
    doallocate();
    const int count = Read(input.Start(), input.Size());
    setg(input.Start(), input.Start(), input.Start() + (count > 0 ? count : 0));
    return count > 0 ? Traits::to_int_type(*gptr()) : Traits::eof();
}

int zelIStreamBuf::overflow(int) {
    return Traits::eof();
}

std::streamsize zelIStreamBuf::showmanyc() {
    return 0;
}

zelOStreamBuf::zelOStreamBuf(int size, char* buffer)
    : zelStreamBufferSize(size), zelStreamBufferBase(buffer) {}

zelOStreamBuf::~zelOStreamBuf() = default;

bool zelOStreamBuf::SetBufferSize(int size) {
    if (size < 1 || bufferStart != nullptr || flush() != 0)
        return false;
    setp(nullptr, nullptr);
    output.Drop();
    return zelStreamBufferSize::SetBufferSize(size);
}

void zelOStreamBuf::doallocate() {
    if (output.IsThere())
        return;
    output.Take(bufferStart, bufferSize);
    setp(output.Start(), output.Start() + output.Size());
}

int zelOStreamBuf::flush() {
    const char* unsent = pbase();
    while (unsent != pptr()) {
        const int taken = Write(unsent, static_cast<int>(pptr() - unsent));
        if (taken <= 0)
            break;
        unsent += taken;
    }
    const auto left = static_cast<int>(pptr() - unsent);
    if (left != 0)
        std::memmove(pbase(), unsent, static_cast<std::size_t>(left));
    setp(pbase(), epptr());
    pbump(left);
    return left == 0 ? 0 : -1;
}

int zelOStreamBuf::overflow(int character) {
    doallocate();
    if (pptr() == epptr() && flush() != 0)
        return Traits::eof();
    if (!Traits::eq_int_type(character, Traits::eof()))
        sputc(Traits::to_char_type(character));
    return Traits::not_eof(character);
}

std::streamsize zelOStreamBuf::xsputn(const char* data, std::streamsize count) {
    char* const next = pptr();
    if (count <= 0 || count > epptr() - next)
        return std::streambuf::xsputn(data, count); // area by area, with overflow in between
    pbump(static_cast<int>(count));
    std::memcpy(next, data, static_cast<std::size_t>(count));
    return count;
}

int zelOStreamBuf::underflow() {
    return Traits::eof();
}

int zelOStreamBuf::sync() {
    return flush();
}

std::streamsize zelOStreamBuf::showmanyc() {
    return 0;
}

zelIOStreamBuf::zelIOStreamBuf(int size, char* buffer)
    : zelStreamBufferSize(size), zelStreamBufferBase(buffer), zelIStreamBuf(size, buffer),
      zelOStreamBuf(size, buffer) {}

zelIOStreamBuf::~zelIOStreamBuf() = default;

bool zelIOStreamBuf::SetBufferSize(int size) {
    return zelOStreamBuf::SetBufferSize(size); // the input side sees the change when it is empty
}

void zelIOStreamBuf::doallocate() {
    if (bufferStart == nullptr) {
        zelIStreamBuf::doallocate();
        zelOStreamBuf::doallocate();
    } else if (!input.IsThere()) {
        const int half = bufferSize / 2;
        input.Take(bufferStart, half);
        output.Take(bufferStart + half, bufferSize - half);
        setp(output.Start(), output.Start() + output.Size());
    }
}

int zelIOStreamBuf::underflow() {
    if (gptr() == egptr())
        flush(); // a failure comes back with the next write
    return zelIStreamBuf::underflow();
}

int zelIOStreamBuf::overflow(int character) {
    return zelOStreamBuf::overflow(character);
}

std::streamsize zelIOStreamBuf::showmanyc() {
    return 0;
}
