// SPDX-License-Identifier: MIT
#include "prolock.h"

#include "outside/win32/threads.h"

proSemaphoreBase::~proSemaphoreBase() = default;

proSimpleSem::proSimpleSem(unsigned int count)
    : handle(
          uCreateSemaphore(nullptr, static_cast<long>(count), static_cast<long>(count), nullptr)) {}

proSimpleSem::~proSimpleSem() {
    CloseHandle(handle);
}

bool proSimpleSem::Increment() {
    return ReleaseSemaphore(handle, 1, nullptr);
}

bool proSimpleSem::Decrement() {
    return WaitForSingleObject(handle, zelWaitInfinite) != zelWaitFailed;
}
