// SPDX-License-Identifier: MIT
#include "outside/varnholt/pipes.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "outside/varnholt/events.h"
#include "outside/win32/handles.h"
#include "outside/win32/pipes.h"
#include "posix/sigpipe.h"
#include "posix/syscalls.h"

namespace {

// A quarter of what a pipe holds: few calls for text read by the line, little memory for a
// stream that is hardly used. Larger blocks go past the buffer.
constexpr int pipeBufferSize = 16 * 1024;

int MostInOneCall(std::streamsize count) {
    return static_cast<int>(std::min<std::streamsize>(count, INT_MAX));
}

/// A write end is waited for until it takes bytes, any other until it has some.
zelBaseEvent::Readiness ReadinessOfEnd(void* handle) {
    const sys::KeepErrno keep;
    const int flags = sys::fcntl(zelDescriptorOfHandle(handle), F_GETFL, 0);
    return flags != -1 && (flags & O_ACCMODE) == O_WRONLY ? zelBaseEvent::Writable
                                                          : zelBaseEvent::Readable;
}

zelBaseEvent* EventOfEnd(void* handle, zelBaseEvent::Readiness readiness) {
    return new zelSelectEvent(static_cast<unsigned int>(zelDescriptorOfHandle(handle)), readiness);
}

} // namespace

zelAnonymousPipe::zelAnonymousPipe() : handle(zelHandleOfDescriptor(-1)) {}

bool zelAnonymousPipe::Create(zelOutputPipe& writeEnd, zelInputPipe& readEnd) {
    int ends[2];
    if (sys::pipe2(ends, O_CLOEXEC) != 0)
        return false;
    readEnd = zelInputPipe(zelHandleOfDescriptor(ends[0]));
    writeEnd = zelOutputPipe(zelHandleOfDescriptor(ends[1]));
    return true;
}

zelIPipeSBuf::zelIPipeSBuf(zelInputPipe taken)
    : zelStreamBufferSize(pipeBufferSize), zelStreamBufferBase(nullptr),
      zelIStreamBuf(pipeBufferSize, nullptr), end(taken) {}

zelIPipeSBuf::~zelIPipeSBuf() {
    CloseHandle(end.fd());
}

std::streamsize zelIPipeSBuf::xsgetn(char* target, std::streamsize count) {
    std::streamsize done = 0;
    while (done < count) {
        const std::streamsize left = count - done;
        if (gptr() == egptr() && left >= bufferSize) {
            const int direct = Read(target + done, MostInOneCall(left));
            if (direct <= 0)
                break;
            done += direct;
        } else {
            if (traits_type::eq_int_type(underflow(), traits_type::eof()))
                break;
            const std::streamsize here = std::min<std::streamsize>(left, egptr() - gptr());
            std::memcpy(target + done, gptr(), static_cast<std::size_t>(here));
            gbump(static_cast<int>(here));
            done += here;
        }
    }
    return done;
}

std::streamsize zelIPipeSBuf::showmanyc() {
    const sys::KeepErrno keep;
    unsigned int available = 0;
    if (!PeekNamedPipe(end.fd(), nullptr, 0, nullptr, &available, nullptr))
        return -1;
    return available;
}

int zelIPipeSBuf::Read(void* data, int length) {
    const int descriptor = zelDescriptorOfHandle(end.fd());
    const ssize_t count =
        sys::retry([&] { return sys::read(descriptor, data, static_cast<std::size_t>(length)); });
    return count > 0 ? static_cast<int>(count) : -1;
}

zelOPipeSBuf::zelOPipeSBuf(zelOutputPipe taken)
    : zelStreamBufferSize(pipeBufferSize), zelStreamBufferBase(nullptr),
      zelOStreamBuf(pipeBufferSize, nullptr), end(taken) {}

zelOPipeSBuf::~zelOPipeSBuf() {
    flush();
    CloseHandle(end.fd());
}

std::streamsize zelOPipeSBuf::xsputn(const char* source, std::streamsize count) {
    if (count < bufferSize)
        return zelOStreamBuf::xsputn(source, count);
    std::streamsize done = 0;
    if (flush() != 0)
        return done;
    while (done < count) {
        const int direct = Write(source + done, MostInOneCall(count - done));
        if (direct <= 0)
            break;
        done += direct;
    }
    return done;
}

int zelOPipeSBuf::Write(void const* data, int length) {
    return static_cast<int>(posix::WriteWithoutSignal(zelDescriptorOfHandle(end.fd()), data,
                                                      static_cast<std::size_t>(length)));
}

zelPipeEvent::zelPipeEvent(void* handle) : zelEvent(EventOfEnd(handle, ReadinessOfEnd(handle))) {}

zelPipeEvent::zelPipeEvent(const zelInputPipe& end)
    : zelEvent(EventOfEnd(end.fd(), zelBaseEvent::Readable)) {}
