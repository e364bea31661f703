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
using GuardedWord [[gnu::may_alias, gnu::aligned(8)]] = std::uint64_t;
// One with a lock of its own would not keep out those who change the section alone.
static_assert(__atomic_always_lock_free(sizeof(GuardedWord), nullptr));

// What a thread does to the contenders. They are below 0 while all of them wait and none owns the
// mutex; who comes across that owns it, whether it has waited or not.
int Joined(int contenders) {
    return contenders < 0 ? 1 - contenders : 1 + contenders;
}
int TookTurn(int contenders) {
    return contenders < 0 ? -contenders : contenders;
}
int Left(int contenders) {
    return 1 - contenders;
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
    return Read(ownerId) == zelSelf.id;
}

void proMutex::LockTryHandle() {
    EnterCriticalSection(&tryHandle);
}

void proMutex::UnlockTryHandle() {
    LeaveCriticalSection(&tryHandle);
}

/// The usual case of changing the contenders: they were that many, and nobody was in the section.
/// Nothing is read from the word before the step, for that would wait until the step before it is
/// through. But one that fails costs threads that contend more than a look: where the mark says
/// that others wait, it is not tried.
[[gnu::always_inline]] inline bool proMutex::ChangeAlone(int before, int after) {
    static_assert(offsetof(proMutex, contenders) == offsetof(proMutex, tryHandle) + 4);
    static_assert(offsetof(proMutex, tryHandle) % sizeof(GuardedWord) == 0);
    if (mainHandle.state.load(std::memory_order_relaxed) != 0)
        return false;
    auto bits = std::bit_cast<std::uint64_t>(Guarded{0, before});
    return __atomic_compare_exchange_n(reinterpret_cast<GuardedWord*>(&tryHandle), &bits,
                                       std::bit_cast<std::uint64_t>(Guarded{0, after}), false,
                                       __ATOMIC_SEQ_CST, __ATOMIC_RELAXED);
}

/// Enters the section, changes the contenders and leaves it: in one atomic step as long as nobody
/// is in there. Gives the contenders as they were.
template <int Change(int)>
inline int proMutex::ChangeContenders() {
    auto* const word = reinterpret_cast<GuardedWord*>(&tryHandle);
    auto seen = std::bit_cast<Guarded>(__atomic_load_n(word, __ATOMIC_RELAXED));
    while (seen.section == 0) {
        const Guarded wanted{0, Change(seen.contenders)};
        auto bits = std::bit_cast<std::uint64_t>(seen);
        if (__atomic_compare_exchange_n(word, &bits, std::bit_cast<std::uint64_t>(wanted), false,
                                        __ATOMIC_SEQ_CST, __ATOMIC_RELAXED))
            return seen.contenders;
        seen = std::bit_cast<Guarded>(bits);
    }
    return ChangeInside(Change);
}

/// Apart from the usual way, like WaitForTurn, so that there are few registers to save.
[[gnu::noinline]] int proMutex::ChangeInside(int change(int)) {
    const zelStopShield shield; // a stopped thread must not shut the section for all others
    LockTryHandle();
    const int before = Read(contenders);
    __atomic_store_n(&contenders, change(before), __ATOMIC_SEQ_CST);
    UnlockTryHandle();
    return before;
}

/// Makes this thread, which waits, the owner if there is none.
bool proMutex::TakeTurn() {
    if (__atomic_load_n(&contenders, __ATOMIC_SEQ_CST) >= 0)
        return false;
    if (ChangeContenders<TookTurn>() >= 0)
        return false;
    // The mark is made anew: whoever woke this thread took it away, or nobody needs it any more.
    mainHandle.state = 0;
    if (__atomic_load_n(&contenders, __ATOMIC_SEQ_CST) > 1)
        mainHandle.state = 2; // they may sleep
    return true;
}

/// `mainHandle` is only slept at here, marked with 2 as long as somebody may sleep, and with 1 as
/// long as others, awake or being woken, are after their turn. Lets a moment pass before it sleeps,
/// and looks at nothing then: most owners are done after that, and neither side has to ask the
/// system to sleep or to wake.
[[gnu::noinline]] void proMutex::WaitForTurn() {
    zelStopShield shield; // a stopped thread must not take along what wakes the others
    std::uint32_t unmarked = 0;
    mainHandle.state.compare_exchange_strong(unmarked, 1, std::memory_order_relaxed);
    for (int i = 0; i < 40; ++i)
        zelPause();
    while (!TakeTurn()) {
        mainHandle.state = 2; // before the last look: who lets go after that sees the mark
        if (TakeTurn())
            return;
        zelSleepAtHeldSection(&mainHandle, shield);
    }
}

void proMutex::BecomeOwner(const zelThreadSelf& self) {
    ownerThread = self.handle;
    Write(ownerId, self.id);
}

bool proMutex::Lock() {
    if (!initialised)
        return false;
    if (const unsigned long owner = Read(ownerId); owner != nobody) {
        if (owner != zelSelf.id) // which is 0, and nobody's, on a thread that has none yet
            return LockAmongOthers();
        ++recursion;
        return true;
    }
    if (zelSelf.id == 0 || !ChangeAlone(0, 1))
        return LockAmongOthers();
    BecomeOwner(zelSelf);
    recursion = 1;
    return true;
}

/// Apart, like UnlockAmongOthers: the usual way has no call, so no registers to save.
[[gnu::noinline]] bool proMutex::LockAmongOthers() {
    if (ChangeContenders<Joined>() > 0)
        WaitForTurn();
    BecomeOwner(zelCurrentThread());
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
    Write(contenders, 1); // who raises it from 0 owns the mutex
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
    ownerThread = badThreadHandle;
    Write(ownerId, nobody);
    // Nobody is owed anything here: who is stopped before the step dies an owner.
    return ChangeAlone(1, 0) || UnlockAmongOthers();
}

[[gnu::noinline]] bool proMutex::UnlockAmongOthers() {
    const zelStopShield shield; // a stopped thread must not take along what wakes the others
    if (ChangeContenders<Left>() > 1 && mainHandle.state == 2)
        zelWakeAtHeldSection(&mainHandle);
    return true;
}
