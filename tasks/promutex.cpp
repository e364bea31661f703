// SPDX-License-Identifier: MIT
#include "prolock.h"

#include "outside/win32/threads.h"
#include "pmtask.h"

namespace {

constexpr unsigned long nobody = 0xFFFFFFFF;

// Compared without a lock: a thread can find its own id only if it has put it there itself.
unsigned long Read(const unsigned long& id) {
    return __atomic_load_n(&id, __ATOMIC_RELAXED);
}
void Write(unsigned long& id, unsigned long value) {
    __atomic_store_n(&id, value, __ATOMIC_RELAXED);
}

} // namespace

proMutex::proMutex() : ownerThread(badThreadHandle), recursion(0), initialised(false) {
    Initialize();
}

proMutex::~proMutex() {
    if (!initialised)
        return;
    DeleteCriticalSection(&mainHandle);
    DeleteCriticalSection(&tryHandle);
    // To be seen by those who still try, at the end of a program; an ordinary assignment to an
    // object that ends would be left out.
    *const_cast<volatile bool*>(&initialised) = false;
}

bool proMutex::Initialize() {
    InitializeCriticalSection(&mainHandle);
    InitializeCriticalSection(&tryHandle);
    contenders = 0;
    Write(ownerId, nobody);
    initialised = true;
    return true;
}

bool proMutex::IsCurrentThreadOwner() const {
    return Read(ownerId) == GetCurrentThreadId();
}

void proMutex::LockTryHandle() {
    EnterCriticalSection(&tryHandle);
}

void proMutex::UnlockTryHandle() {
    LeaveCriticalSection(&tryHandle);
}

bool proMutex::Lock() {
    if (!initialised)
        return false;
    if (IsCurrentThreadOwner()) {
        ++recursion;
        return true;
    }
    LockTryHandle();
    ++contenders;
    UnlockTryHandle();
    EnterCriticalSection(&mainHandle);
    ownerThread = GetCurrentThread();
    Write(ownerId, GetCurrentThreadId());
    recursion = 1;
    return true;
}

bool proMutex::TryLock() {
    if (!initialised)
        return false;
    if (IsCurrentThreadOwner()) {
        ++recursion;
        return true;
    }
    LockTryHandle();
    if (contenders != 0) {
        UnlockTryHandle();
        return false;
    }
    contenders = 1;
    EnterCriticalSection(&mainHandle); // cannot wait: nobody gets here past the other section
    ownerThread = GetCurrentThread();
    Write(ownerId, GetCurrentThreadId());
    ++recursion;
    UnlockTryHandle();
    return true;
}

bool proMutex::Unlock() {
    if (!initialised || !IsCurrentThreadOwner())
        return false;
    if (--recursion != 0)
        return true;
    ownerThread = badThreadHandle;
    Write(ownerId, nobody);
    LeaveCriticalSection(&mainHandle);
    LockTryHandle();
    --contenders;
    UnlockTryHandle();
    return true;
}
