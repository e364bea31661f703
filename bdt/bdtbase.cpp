// SPDX-License-Identifier: MIT
#include "bdtstream.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <climits>
#include <cstring>
#include <utility>

#include "bdt/transfer.h"
#include "outside/quillmarsh/multibyte.h"

static constexpr unsigned int prefixLength = 4;

int bdt::AskForBytes(bdtStream& stream, char* data, int count) {
    std::streambuf* const buffer = stream.rdbuf();
    const int moved =
        buffer != nullptr && count > 0 ? static_cast<int>(buffer->sgetn(data, count)) : 0;
    if (moved != count)
        stream.setstate(bdtStream::eofbit | bdtStream::failbit);
    return moved;
}

int bdt::OfferBytes(bdtStream& stream, const char* data, int count) {
    std::streambuf* const buffer = stream.rdbuf();
    const int moved =
        buffer != nullptr && count > 0 ? static_cast<int>(buffer->sputn(data, count)) : 0;
    if (moved != count)
        stream.setstate(bdtStream::badbit);
    return moved;
}

int bdtBase::byteOrderProbePending = 1;
int bdtBase::hostIsNetworkOrder = 0;

bdtBase::bdtBase() {
    const std::atomic_ref<int> pending(byteOrderProbePending);
    if (pending.load(std::memory_order_acquire) == 0)
        return;
    std::atomic_ref<int>(hostIsNetworkOrder).store(IsByteOrderOK(), std::memory_order_relaxed);
    pending.store(0, std::memory_order_release);
}

bdtBase::~bdtBase() = default;

int bdtBase::IsByteOrderOK() {
    return std::endian::native == std::endian::big ? 1 : 0;
}

void bdtBase::Swap4(char* word) {
    if (HostSwaps())
        std::reverse(word, word + 4);
}

void bdtBase::Swap8(char* word) {
    if (HostSwaps())
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
    return bdt::Take(*this, data, count);
}

int bdtStream::sputn(char* data, int count) {
    return bdt::Put(*this, data, count);
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
