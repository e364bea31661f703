// SPDX-License-Identifier: MIT
#include "outside/win32/pipes.h"

#include "outside/win32/handles.h"
#include "posix/sigpipe.h"
#include "posix/syscalls.h"

namespace {

bool IsPipe(int descriptor) {
    struct stat facts;
    return sys::fstat(descriptor, &facts) == 0 && S_ISFIFO(facts.st_mode);
}

bool BytesWaiting(int descriptor, unsigned int* count) {
    int waiting = 0;
    const bool known = sys::ioctl(descriptor, FIONREAD, &waiting) == 0;
    *count = static_cast<unsigned int>(waiting);
    return known;
}

} // namespace

bool PeekNamedPipe(void* handle, void*, unsigned int, unsigned int*, unsigned int* available,
                   unsigned int*) {
    const int descriptor = zelDescriptorOfHandle(handle);
    if (!BytesWaiting(descriptor, available))
        return false;
    if (*available != 0)
        return true;
    // No bytes: either none for now, or none for ever. The last bytes and the hang-up may have
    // come after the first look, so it is taken again once the hang-up has been seen.
    pollfd entry{descriptor, POLLIN, 0};
    const timespec now{};
    if (sys::retry([&] { return sys::ppoll(&entry, 1, &now); }) == -1)
        return false;
    if ((entry.revents & POLLHUP) == 0)
        return true;
    if (!BytesWaiting(descriptor, available))
        return false;
    if (*available == 0)
        errno = EPIPE;
    return *available != 0;
}

bool ReadFile(void* handle, void* data, unsigned int size, unsigned int* count, void*) {
    const int descriptor = zelDescriptorOfHandle(handle);
    const ssize_t got = sys::retry([&] { return sys::read(descriptor, data, size); });
    *count = got > 0 ? static_cast<unsigned int>(got) : 0;
    if (got == 0 && size != 0 && IsPipe(descriptor)) {
        errno = EPIPE;
        return false;
    }
    return got >= 0;
}

bool WriteFile(void* handle, const void* data, unsigned int size, unsigned int* count, void*) {
    const int descriptor = zelDescriptorOfHandle(handle);
    const char* from = static_cast<const char*>(data);
    *count = 0;
    while (*count < size) {
        const ssize_t sent = posix::WriteWithoutSignal(descriptor, from + *count, size - *count);
        if (sent == 0)
            errno = EIO; // nothing taken, and no reason given
        if (sent <= 0)
            return false;
        *count += static_cast<unsigned int>(sent);
    }
    return true;
}
