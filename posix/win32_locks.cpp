// SPDX-License-Identifier: MIT
#include "outside/win32/locks.h"

#include <bit>
#include <new>

#include "outside/win32/threads.h"
#include "posix/futex.h"
#include "posix/handleobject.h"

void zelEnterHeldSection(CRITICAL_SECTION* section) {
    zelStopShield shield;
    // Whoever has waited once marks the section for all that may still wait behind.
    while (section->state.exchange(2, std::memory_order_acquire) != 0)
        zelSleepAtHeldSection(section, shield);
}

void zelSleepAtHeldSection(CRITICAL_SECTION* section, zelStopShield& shield) {
    posix::FutexWait(section->state, 2, posix::Deadline::Never());
    if (shield.KeepsAStopWaiting()) {
        posix::FutexWake(section->state, 1); // it may have been the one that was woken
        shield.GiveWay();
    }
}

void zelWakeAtHeldSection(CRITICAL_SECTION* section) {
    const zelStopShield shield;
    section->state.store(1);
    posix::FutexWake(section->state, 1);
}

void zelLeaveSharedSection(CRITICAL_SECTION* section) {
    const zelStopShield shield;
    section->state.store(0, std::memory_order_release);
    posix::FutexWake(section->state, 1);
}

namespace {

/// Count and sleepers share one word, so that whoever adds to the count is done with the object
/// in that same moment: the one who takes it may close the semaphore at once.
class Semaphore final : public posix::HandleObject {
public:
    Semaphore(std::uint32_t count, std::uint32_t most) : ceiling(most), word(count) {}

    void ReleaseHandle() override { delete this; }

    std::optional<bool> Wait(const posix::Deadline& deadline) override {
        zelStopShield shield;
        std::uint64_t state = word.load();
        for (int looks = 0;;) {
            if (CountIn(state) > 0) {
                if (word.compare_exchange_weak(state, state - 1))
                    return true;
                continue;
            }
            if (deadline.HasPassed())
                return false;
            if (looks < looksBeforeSleep) {
                ++looks;
                zelPause();
                state = word.load();
                continue;
            }
            word.fetch_add(sleeper);
            posix::FutexWait(CountWord(), 0, deadline);
            state = word.fetch_sub(sleeper) - sleeper;
            if (shield.KeepsAStopWaiting()) {
                posix::FutexWake(CountWord(), 1); // it may have been the one that was woken
                shield.GiveWay();
                state = word.load();
            }
        }
    }

    bool Release(std::uint32_t count, std::uint32_t& previous) {
        const zelStopShield shield;
        const std::atomic<std::uint32_t>& sleptOn = CountWord();
        std::uint64_t state = word.load();
        do {
            previous = CountIn(state);
            if (count > ceiling - previous)
                return false;
        } while (!word.compare_exchange_weak(state, state + count));
        if (state >= sleeper)
            posix::FutexWake(sleptOn, static_cast<int>(count));
        return true;
    }

private:
    // As many as take about as long as to sleep and to be woken. With threads that pass each other
    // the turn that is most often enough, and neither has to ask the system.
    static constexpr int looksBeforeSleep = 100;

    // Bits 0 to 31: the count. The others: how many sleep.
    static constexpr std::uint64_t sleeper = std::uint64_t{1} << 32;
    static std::uint32_t CountIn(std::uint64_t state) { return static_cast<std::uint32_t>(state); }

    [[nodiscard]] const std::atomic<std::uint32_t>& CountWord() const {
        const auto* halves = reinterpret_cast<const std::atomic<std::uint32_t>*>(&word);
        return halves[std::endian::native == std::endian::little ? 0 : 1];
    }

    const std::uint32_t ceiling;
    std::atomic<std::uint64_t> word;
};

} // namespace

void* uCreateSemaphore(void* security, long count, long ceiling, const char* name) {
    if (security != nullptr || name != nullptr || count < 0 || ceiling < count ||
        static_cast<unsigned long>(ceiling) > UINT32_MAX) {
        errno = EINVAL;
        return nullptr;
    }
    posix::HandleObject* const made = new (std::nothrow)
        Semaphore(static_cast<std::uint32_t>(count), static_cast<std::uint32_t>(ceiling));
    if (made == nullptr)
        errno = ENOMEM;
    return made;
}

bool ReleaseSemaphore(void* handle, long count, long* previous) {
    Semaphore* const semaphore =
        (reinterpret_cast<std::uintptr_t>(handle) & 1) != 0
            ? nullptr
            : dynamic_cast<Semaphore*>(static_cast<posix::HandleObject*>(handle));
    std::uint32_t before = 0;
    if (semaphore == nullptr || count <= 0 || static_cast<unsigned long>(count) > UINT32_MAX) {
        errno = semaphore == nullptr ? EBADF : EINVAL;
        return false;
    }
    if (!semaphore->Release(static_cast<std::uint32_t>(count), before)) {
        errno = EOVERFLOW;
        return false;
    }
    if (previous != nullptr)
        *previous = static_cast<long>(before);
    return true;
}
