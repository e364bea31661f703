// SPDX-License-Identifier: MIT
#include "pipestream.h"

#include "outside/win32/handles.h"
#include "outside/win32/pipes.h"

namespace {

constexpr int areaSize = 4096; ///< of each of the two areas

} // namespace

zelPipeBuf::zelPipeBuf(bool)
    : handle(zelHandleOfDescriptor(-1)), buffer(nullptr), getAreaSize(areaSize), attached(false) {}

zelPipeBuf::~zelPipeBuf() {
    delete[] buffer;
    if (attached)
        CloseHandle(handle);
}

bool zelPipeBuf::setIOCtrlHandle(void* pipe) {
    if (attached)
        return false;
    handle = pipe;
    attached = true;
    return true;
}

int zelPipeBuf::is_attached() {
    return attached ? 1 : 0;
}

bool zelPipeBuf::at_end() {
    if (gptr() != egptr())
        return false;
    unsigned int available = 0;
    return !PeekNamedPipe(handle, nullptr, 0, nullptr, &available, nullptr);
}

int zelPipeBuf::doallocate() {
    if (buffer != nullptr)
        return 0;
    buffer = new char[static_cast<unsigned int>(getAreaSize + areaSize)];
    setg(buffer, buffer, buffer);
    setp(buffer + getAreaSize, buffer + getAreaSize + areaSize);
    return 1;
}

bool zelPipeBuf::FlushPutArea() {
    const auto pending = static_cast<unsigned int>(pptr() - pbase());
    if (pending != 0) {
        unsigned int written = 0;
        WriteFile(handle, pbase(), pending, &written, nullptr);
        if (written != pending)
            return false;
    }
    setp(pbase(), epptr());
    return true;
}

zelPipeBuf::int_type zelPipeBuf::overflow(int_type c) {
    doallocate();
    if (!FlushPutArea())
        return -1;
    return c == -1 ? 1 : sputc(static_cast<char>(c));
}

int zelPipeBuf::sync() {
    if (buffer == nullptr)
        return 1;
    char* const behind = buffer + getAreaSize;
    setg(buffer, behind, behind);
    return FlushPutArea() ? 1 : -1;
}

zelPipeBuf::int_type zelPipeBuf::underflow() {
    if (gptr() != egptr())
        return static_cast<unsigned char>(*gptr());
    doallocate();
    setg(buffer, buffer, buffer);
    unsigned int available = 0;
    if (!PeekNamedPipe(handle, nullptr, 0, nullptr, &available, nullptr) || available == 0)
        return -1;
    unsigned int count = 0;
    ReadFile(handle, buffer, static_cast<unsigned int>(getAreaSize), &count, nullptr);
    setg(buffer, buffer, buffer + count);
    return count == 0 ? -1 : static_cast<unsigned char>(*buffer);
}
