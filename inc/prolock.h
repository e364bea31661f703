// SPDX-License-Identifier: MIT
//
// Locks for the programs above: a recursive mutex and a counting semaphore. The library itself
// takes none of them.
//
// Any thread may call any operation; making and destroying is for one thread alone, while nobody
// uses the object. A thread that is killed takes what it holds along, and nobody gets it back: the
// mutex of a killed owner stays locked.
#ifndef PLINTH_PROLOCK_H
#define PLINTH_PROLOCK_H

#include "outside/win32/locks.h"
#include "outside/zelexport.h"

/// A recursive mutex that knows its owner, with a try-lock that never waits for the owner.
///
/// It differs from std::recursive_mutex in three ways: TryLock also gives way to threads that are
/// waiting already; a mutex in storage that is still zero, before its constructor has run, refuses
/// everything until Initialize makes it usable; and std::lock_guard does not know its names.
class ZEL_EXPORT proMutex {
public:
    proMutex();
    proMutex(const proMutex&) = delete;
    proMutex& operator=(const proMutex&) = delete;
    ~proMutex();

    /// Makes a mutex in zero-filled storage usable; always true. Requires: nobody holds it.
    bool Initialize();

    /// Waits until the calling thread owns the mutex, once more if it did already. False only for
    /// a mutex that is not initialised.
    bool Lock();
    /// Like Lock, but false where that would wait, and where another thread waits: one that is just
    /// about to own the mutex, or one that was killed while it waited.
    [[nodiscard]] bool TryLock();
    /// Takes back one Lock or TryLock. False, and nothing changes, for anyone but the owner.
    bool Unlock();

private:
    [[nodiscard]] bool IsCurrentThreadOwner() const;
    void LockTryHandle();
    void UnlockTryHandle();
    bool ChangeAlone(int before, int after);
    template <int Change(int)>
    int ChangeContenders();
    int ChangeInside(int change(int));
    bool TakeTurn();
    void WaitForTurn();
    bool LockAmongOthers();
    bool UnlockAmongOthers();
    void BecomeOwner(const struct zelThreadSelf& self);

    CRITICAL_SECTION mainHandle; ///< where those who wait for the owner sleep
    void* ownerThread;           ///< for whoever looks at the mutex in a debugger
    int recursion;               ///< how many times the owner holds it
    bool initialised;
    unsigned long ownerId; ///< 0xFFFFFFFF while nobody owns it
    /// Guards `contenders`, and covers all of an acquiring TryLock. The two lie in one word.
    alignas(8) CRITICAL_SECTION tryHandle;
    int contenders; ///< threads that own the mutex or wait for it; below 0: all of them wait
};

/// A counting semaphore.
class ZEL_EXPORT proSemaphoreBase {
public:
    proSemaphoreBase() = default;
    proSemaphoreBase(const proSemaphoreBase&) = delete;
    proSemaphoreBase& operator=(const proSemaphoreBase&) = delete;
    virtual ~proSemaphoreBase();
    /// Adds one and lets a waiting thread through; false at the ceiling.
    virtual bool Increment() = 0;
    /// Takes one, and waits for it as long as there is none; false on failure.
    virtual bool Decrement() = 0;
};

/// A semaphore that is full at birth: its ceiling is the count that it starts with. One of 0 never
/// lets anybody through.
class ZEL_EXPORT proSimpleSem : public proSemaphoreBase {
public:
    explicit proSimpleSem(unsigned int count); ///< the count and the ceiling
    /// Requires: nobody waits.
    ~proSimpleSem() override;

    bool Increment() override;
    bool Decrement() override;
    /// The semaphore of the platform, owned by this object; null if there was none to be had, and
    /// then both operations are false.
    [[nodiscard]] void* GetHandle() const { return handle; }

private:
    void* handle;
};

#endif
