// SPDX-License-Identifier: MIT
#include "prolock.h"

#include <bit>
#include <cstddef>

#include "outside/win32/threads.h"
#include "pmtask.h"

namespace {

constexpr unsigned long nobody = 0xFFFFFFFF;

// Fields that are looked at without a lock: by a thread that seeks its own id, which it can find
// only if it has put it there itself, and together with the section beside them.
template <typename T>
T Read(const T& field) {
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}
template <typename T>
void Write(T& field, T value) {
    __atomic_store_n(&field, value, __ATOMIC_RELAXED);
}

/// The section that guards the contenders, and these, as the one word that they lie in.
struct Guarded {
    std::uint32_t section;
    int contenders;
};
using GuardedWord [[gnu::may_alias]] = std::uint64_t;

/// Waits for the section and adds. Apart from the usual way, which so has few registers to save.
[[gnu::noinline]] void AddInside(CRITICAL_SECTION& section, int& contenders, int amount) {
    const zelStopShield shield; // a stopped thread must not shut the section for all others
    EnterCriticalSection(&section);
    Write(contenders, Read(contenders) + amount);
    LeaveCriticalSection(&section);
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
    return Read(ownerId) == zelCurrentThread().id;
}

void proMutex::LockTryHandle() {
    EnterCriticalSection(&tryHandle);
}

void proMutex::UnlockTryHandle() {
    LeaveCriticalSection(&tryHandle);
}

/// Enters the section, adds and leaves it: in one atomic step as long as nobody is in there. The
/// first guess is that nobody else is about at all.
inline void proMutex::AddContenders(int amount) {
    static_assert(offsetof(proMutex, contenders) == offsetof(proMutex, tryHandle) + 4);
    static_assert(offsetof(proMutex, tryHandle) % sizeof(GuardedWord) == 0);
    auto* const word = reinterpret_cast<GuardedWord*>(&tryHandle);
    Guarded seen{0, amount < 0 ? -amount : 0};
    while (seen.section == 0) {
        const Guarded wanted{0, seen.contenders + amount};
        auto bits = std::bit_cast<std::uint64_t>(seen);
        if (__atomic_compare_exchange_n(word, &bits, std::bit_cast<std::uint64_t>(wanted), false,
                                        __ATOMIC_ACQ_REL, __ATOMIC_RELAXED))
            return;
        seen = std::bit_cast<Guarded>(bits);
    }
    AddInside(tryHandle, contenders, amount);
}

void proMutex::BecomeOwner(const zelThreadSelf& self) {
    ownerThread = self.handle;
    Write(ownerId, self.id);
}

bool proMutex::Lock() {
    if (!initialised)
        return false;
    const zelThreadSelf& self = zelCurrentThread();
    if (Read(ownerId) == self.id) {
        ++recursion;
        return true;
    }
    AddContenders(1);
    EnterCriticalSection(&mainHandle);
    BecomeOwner(self);
    recursion = 1;
    return true;
}

bool proMutex::TryLock() {
    if (!initialised)
        return false;
    zelThreadSelf& self = zelCurrentThread();
    if (Read(ownerId) == self.id) {
        ++recursion;
        return true;
    }
    const zelStopShield shield(self);
    LockTryHandle();
    if (Read(contenders) != 0) {
        UnlockTryHandle();
        return false;
    }
    Write(contenders, 1);
    EnterCriticalSection(&mainHandle); // cannot wait: nobody gets here past the other section
    BecomeOwner(self);
    ++recursion;
    UnlockTryHandle();
    return true;
}

bool proMutex::Unlock() {
    if (!initialised || !IsCurrentThreadOwner())
        return false;
    if (--recursion != 0)
        return true;
    const zelStopShield shield; // who is stopped here has let go, and does not count any more
    ownerThread = badThreadHandle;
    Write(ownerId, nobody);
    LeaveCriticalSection(&mainHandle);
    AddContenders(-1);
    return true;
}
