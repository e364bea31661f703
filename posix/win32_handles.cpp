// SPDX-License-Identifier: MIT
#include "outside/win32/handles.h"

#include "posix/handleobject.h"
#include "posix/syscalls.h"

bool CloseHandle(void* handle) {
    if ((reinterpret_cast<long>(handle) & 1) != 0) {
        const int former = errno, descriptor = zelDescriptorOfHandle(handle);
        // An interrupted close has closed all the same: a second one could hit a newcomer.
        if (descriptor < 0 || (sys::close(descriptor) != 0 && errno != EINTR))
            return false;
        errno = former;
        return true;
    }
    if (handle == nullptr)
        return false;
    static_cast<posix::HandleObject*>(handle)->ReleaseHandle();
    return true;
}

unsigned int GetLastError() {
    return static_cast<unsigned int>(errno);
}
