// SPDX-License-Identifier: MIT
#include "outside/win32/files.h"

#include "outside/win32/handles.h"
#include "posix/filecalls.h"
#include "posix/polling.h"

bool UnlockFile(void* handle) {
    const int descriptor = zelDescriptorOfHandle(handle);
    return sys::retry([&] { return sys::flock(descriptor, LOCK_UN); }) == 0;
}

unsigned int GetCurrentProcessId() {
    return static_cast<unsigned int>(sys::getpid());
}

void Sleep(unsigned int milliseconds) {
    const sys::KeepErrno keep;
    posix::PollUntil(nullptr, 0, posix::Deadline::In(std::chrono::milliseconds(milliseconds)));
}
