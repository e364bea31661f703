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

#include "outside/win32/handles.h"
#include "outside/zelexport.h"

/// Starts a thread at once: `entry(argument)`, whose result is the thread's exit code. `stackSize`
/// 0 is the system's default. The thread starts with the signal mask of its starter, but for the
/// signal below. `id`, unless null, takes the thread's id; the call then waits until the thread
/// runs. Null on failure, with the last error set.
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
/// A thread inside TerminateThread cannot be stopped until its call is over.
[[nodiscard]] ZEL_EXPORT bool TerminateThread(void* thread, unsigned int exitCode);

/// The real-time signal that TerminateThread uses. Its handler is installed by the first call,
/// and only if the program has left the signal alone by then.
[[nodiscard]] ZEL_EXPORT int zelTerminateSignal();

/// The handle of the calling thread, borrowed: not to be closed. It is the one its starter got; a
/// thread that was not started here has a stand-in, the same for all of them, which can be
/// neither stopped nor waited for.
[[nodiscard]] ZEL_EXPORT void* GetCurrentThread();

/// The system's number for the calling thread: no other thread has it as long as this one lives.
/// Never 0 and never 0xFFFFFFFF.
[[nodiscard]] ZEL_EXPORT unsigned long GetCurrentThreadId();

/// Both at once and at the least cost, for the library itself.
struct zelThreadSelf {
    void* handle;
    unsigned long id;
};
[[nodiscard]] const zelThreadSelf& zelCurrentThread();

constexpr unsigned int zelWaitInfinite = 0xFFFFFFFF;
constexpr unsigned int zelWaitSignaled = 0;
constexpr unsigned int zelWaitTimeout = 0x102;
constexpr unsigned int zelWaitFailed = 0xFFFFFFFF;

/// Waits for the end of a thread, or takes one from a semaphore, `msec` milliseconds at the most.
/// zelWaitFailed for a handle that cannot be waited for.
ZEL_EXPORT unsigned int WaitForSingleObject(void* handle, unsigned int msec);

#endif
