// SPDX-License-Identifier: MIT
#include "bdtstream.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <climits>
#include <cstring>
#include <streambuf>
#include <utility>

#include "outside/quillmarsh/multibyte.h"

namespace {

/// The flags are plain integers to whoever derives from the class; all access goes through this.
std::atomic_ref<int> Shared(int& flag) {
    return std::atomic_ref<int>(flag);
}

constexpr unsigned int prefixLength = 4;

} // namespace

int bdtBase::byteOrderProbePending = 1;
int bdtBase::hostIsNetworkOrder = 0;

bdtBase::bdtBase() {
    if (Shared(byteOrderProbePending).load(std::memory_order_acquire) == 0)
        return;
    Shared(hostIsNetworkOrder).store(IsByteOrderOK(), std::memory_order_relaxed);
    Shared(byteOrderProbePending).store(0, std::memory_order_release);
}

bdtBase::~bdtBase() = default;

int bdtBase::IsByteOrderOK() {
    return std::endian::native == std::endian::big ? 1 : 0;
}

void bdtBase::Swap4(char* word) {
    if (Shared(hostIsNetworkOrder).load(std::memory_order_relaxed) == 0)
        std::reverse(word, word + 4);
}

void bdtBase::Swap8(char* word) {
    if (Shared(hostIsNetworkOrder).load(std::memory_order_relaxed) == 0)
        std::reverse(word, word + 8);
}

unsigned int bdtBase::Length(char, int) {
    return 1;
}

unsigned int bdtBase::Length(unsigned char, int) {
    return 1;
}

unsigned int bdtBase::Length(short, int portable) {
    return portable != 0 ? 4 : 2;
}

unsigned int bdtBase::Length(unsigned short, int portable) {
    return portable != 0 ? 4 : 2;
}

unsigned int bdtBase::Length(int, int) {
    return 4;
}

unsigned int bdtBase::Length(unsigned int, int) {
    return 4;
}

unsigned int bdtBase::Length(float, int) {
    return 4;
}

unsigned int bdtBase::Length(double, int) {
    return 8;
}

unsigned int bdtBase::Length(char const* text, int) {
    if (text == nullptr)
        return prefixLength;
    return static_cast<unsigned int>(std::strlen(text)) + prefixLength;
}

unsigned int bdtBase::Length(wchar_t const* text, int) {
    if (text == nullptr)
        return prefixLength;
    return static_cast<unsigned int>(zel_wcstombs(nullptr, text, 0)) + 1 + prefixLength;
}

unsigned int bdtBase::Length(wchar_t character, int portable, int multibyteChars) {
    if (portable == 0)
        return 2;
    if (multibyteChars == 0)
        return 4;
    char bytes[MB_LEN_MAX];
    return static_cast<unsigned int>(zel_wctomb(bytes, character)) + prefixLength;
}

bdtStream::bdtStream(std::basic_streambuf<char>* newBuffer, int newPortable)
    : state(0), portable(newPortable), multibyteChars(0), buffer(newBuffer) {}

bdtStream::bdtStream() : bdtStream(nullptr, 1) {}

bdtStream::~bdtStream() = default;

void bdtStream::setstate(int bits) {
    state |= bits;
}

std::basic_streambuf<char>* bdtStream::rdbuf(std::basic_streambuf<char>* newBuffer) {
    return std::exchange(buffer, newBuffer);
}

int bdtStream::sgetn(char* data, int count) {
    const bool any = buffer != nullptr && count > 0;
    const int moved = any ? static_cast<int>(buffer->sgetn(data, count)) : 0;
    if (moved != count)
        setstate(eofbit | failbit);
    return moved;
}

int bdtStream::sputn(char* data, int count) {
    const bool any = buffer != nullptr && count > 0;
    const int moved = any ? static_cast<int>(buffer->sputn(data, count)) : 0;
    if (moved != count)
        setstate(badbit);
    return moved;
}

void bdtStream::Swap4(char* word) {
    bdtBase::Swap4(word);
}

void bdtStream::Swap8(char* word) {
    bdtBase::Swap8(word);
}

bdtIOStream::bdtIOStream(std::basic_streambuf<char>* newBuffer, bool newPortable)
    : bdtStream(newBuffer, newPortable ? 1 : 0) {}

bdtIOStream::bdtIOStream() = default;

bdtIOStream::~bdtIOStream() = default;
