// SPDX-License-Identifier: MIT
#include "outside/quillmarsh/files.h"

#include "outside/win32/handles.h"
#include "posix/filecalls.h"

int zel_unlink(const char* path) {
    return sys::unlink(path);
}

int zel_chdir(const char* path) {
    return sys::chdir(path);
}

bool win32FindClose(void* handle) {
    const sys::KeepErrno keep; // for whoever has to tell of an earlier failure
    return CloseHandle(handle);
}

bool win32CloseFileHandle(void* handle) {
    const sys::KeepErrno keep; // for whoever has to tell of an earlier failure
    return CloseHandle(handle);
}
