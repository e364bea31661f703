// SPDX-License-Identifier: MIT
//
// Threads of this process, and the one way to end a thread from outside.
//
// A thread is a handle (see handles.h). Its record lives until the thread has ended and the
// handle is closed, whichever comes last; a thread that has ended keeps no stack and no
// descriptor, also when nobody ever closes its handle. A thread counts as ended when its
// destructors of thread-local objects have run.
#ifndef PLINTH_WIN32_THREADS_H
#define PLINTH_WIN32_THREADS_H

#include <atomic>
#include <csignal>

#include "outside/win32/handles.h"
#include "outside/zelexport.h"

/// Starts a thread at once: `entry(argument)`, whose result is the thread's exit code. `stackSize`
/// 0 is the system's default. The thread starts with the signal mask of its starter, but for the
/// signal below. `id`, unless null, takes the thread's id. Null on failure, with the last error
/// set.
/// Requires: `security` is null and `flags` is 0.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the name is given
[[nodiscard]] ZEL_EXPORT void* _beginthreadex(void* security, unsigned int stackSize,
                                              unsigned int (*entry)(void*), void* argument,
                                              unsigned int flags, unsigned int* id);

/// Stops a thread at once, in a busy loop and in a blocked call alike, and gives it the exit code.
/// Of its frames nothing is unwound, and what they hold stays held; destructors of thread-local
/// objects run. True means that the thread is gone, also when it ended by itself; a thread that
/// never got to run never will. False: no thread, or one that could not be stopped within a few
/// seconds, because it blocks every signal or the program uses zelTerminateSignal() itself; it
/// then runs on. While the thread is inside the C library or the allocator its stop is put
/// off, for 250 ms of running at the most. A thread that stops itself does not come back.
///
/// A thread inside TerminateThread, or wherever else a zelStopShield stands, cannot be stopped
/// until it comes out; so no lock of the library's own goes with a thread that is stopped.
[[nodiscard]] ZEL_EXPORT bool TerminateThread(void* thread, unsigned int exitCode);

/// The real-time signal that TerminateThread uses. Its handler is installed by the first call,
/// and only if the program has left the signal alone by then.
[[nodiscard]] ZEL_EXPORT int zelTerminateSignal();

/// The handle of the calling thread, borrowed: not to be closed. It is the one its starter got; a
/// thread that was not started here has a stand-in, the same for all of them, which can be
/// neither stopped nor waited for.
[[nodiscard]] ZEL_EXPORT void* GetCurrentThread();

/// The number of the calling thread, which no other thread of this process ever gets, not even
/// after its end. A forked process keeps that of the thread that forked it. It is not the number
/// that the system shows. Never 0 and never 0xFFFFFFFF.
[[nodiscard]] ZEL_EXPORT unsigned long GetCurrentThreadId();

/// Both at once and at the least cost, for the library itself; and what is between the thread and
/// whoever would stop it.
struct zelThreadSelf {
    void* handle;
    unsigned long id;
    volatile std::sig_atomic_t shields;   ///< how many stand
    volatile std::sig_atomic_t stopIsDue; ///< one of them has put off a stop
};
/// The calling thread's own, of the kind that a signal handler may read. Its id is 0 until
/// zelNameThread() has been called; a thread that was started here is born with one.
extern __thread zelThreadSelf zelSelf [[gnu::tls_model("initial-exec"), gnu::visibility("hidden")]];
void zelNameThread();
[[nodiscard]] inline zelThreadSelf& zelCurrentThread() {
    if (__builtin_expect(zelSelf.id == 0, 0))
        zelNameThread();
    return zelSelf;
}

/// Stops the calling thread if that is still asked for.
void zelObeyStop();

/// Puts off stops of the calling thread as long as one stands: where it holds a lock of the
/// library's own, or owes others a wake-up. Costs no atomic operation. A stop that was put off
/// happens when the last one falls, in there.
class zelStopShield {
public:
    explicit zelStopShield(zelThreadSelf& own = zelCurrentThread()) : self(own) { Raise(self); }
    zelStopShield(const zelStopShield&) = delete;
    zelStopShield& operator=(const zelStopShield&) = delete;
    ~zelStopShield() { Lower(self); }

    /// True when a stop waits for this shield alone. Whoever sleeps behind one looks each time that
    /// a signal wakes him: he tidies up, gives way, and goes on if he comes back.
    [[nodiscard]] bool KeepsAStopWaiting() const {
        return self.stopIsDue != 0 && self.shields == 1;
    }
    void GiveWay() {
        Lower(self);
        Raise(self);
    }

    static void Raise(zelThreadSelf& self) {
        self.shields = self.shields + 1;
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
    static void Lower(zelThreadSelf& self) {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        self.shields = self.shields - 1;
        if (self.stopIsDue != 0 && self.shields == 0)
            zelObeyStop();
    }

private:
    zelThreadSelf& self;
};

/// Spends a moment, some ten nanoseconds, for a thread that waits for what another is about to do.
/// The processor goes to nobody: one who gives it away gets it back, where others compute, only
/// after their time is up.
inline void zelPause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("isb");
#endif
}

constexpr unsigned int zelWaitInfinite = 0xFFFFFFFF;
constexpr unsigned int zelWaitSignaled = 0;
constexpr unsigned int zelWaitTimeout = 0x102;
constexpr unsigned int zelWaitFailed = 0xFFFFFFFF;

/// Waits for the end of a thread, or takes one from a semaphore, `msec` milliseconds at the most.
/// zelWaitFailed for a handle that cannot be waited for.
ZEL_EXPORT unsigned int WaitForSingleObject(void* handle, unsigned int msec);

#endif
