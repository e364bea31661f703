// SPDX-License-Identifier: MIT
//
// The record of a thread that the library started: what its handle points to.
//
// The record is held by the handle, by the thread itself, and by each event on its end. The
// thread is made joinable, because only that keeps its system identity valid for somebody who
// stops it, and detaches itself at its end unless somebody is stopping it just then: that one
// joins it. So no stack waits for anybody.
#ifndef PLINTH_POSIX_THREAD_H
#define PLINTH_POSIX_THREAD_H

#include <csetjmp>
#include <memory>

#include "outside/win32/threads.h"
#include "posix/endevent.h"
#include "posix/futex.h"
#include "posix/handleobject.h"

namespace posix {

class Thread : public HandleObject {
public:
    /// Starts the thread and gives its record up to handle and thread. Null on failure, with
    /// errno; the record is gone then. A null record is a failure for want of memory.
    static Thread* Launch(std::unique_ptr<Thread> made, std::size_t stackSize);
    /// The record behind a handle; null for anything but a thread.
    static Thread* FromHandle(void* handle);
    /// The calling thread's record; null on a thread that was not started here.
    static Thread* Current();
    /// See zelNameThread.
    static void NameSelf();
    /// See zelObeyStop.
    static void ObeyStop();

    void Hold() { holders.fetch_add(1, std::memory_order_relaxed); }
    void Drop();

    /// The thread's code if it has ended.
    std::optional<unsigned int> ExitCode();
    /// True once the thread has ended; false when it has not in time.
    bool WaitEnded(const Deadline& deadline);
    EndEvent& End() { return endEvent; }
    /// See GetCurrentThreadId.
    [[nodiscard]] unsigned long Id() const { return id; }

    /// See TerminateThread.
    bool Terminate(unsigned int code);

    void ReleaseHandle() override { Drop(); }
    std::optional<bool> Wait(const Deadline& deadline) override { return WaitEnded(deadline); }

protected:
    /// The body; its result is the exit code.
    virtual unsigned int Run() = 0;

private:
    /// The first thread-local object of its thread, so the last one to go: the end is told when
    /// all the others have been destroyed.
    struct EndGuard {
        Thread* thread = nullptr;
        ~EndGuard();
    };
    /// Where a stop jumps back to, and the signal mask to put back there. It lies on the thread's
    /// own stack.
    struct Frame {
        sigjmp_buf entry;
        sigset_t mask;
    };

    /// How far the thread is. It goes on by itself alone, but for the first step.
    enum Phase : int { Starting, Running, Stopped, Returned, Ending, Ended };
    /// Who makes an end of the system's thread.
    enum Reaper : int { Nobody, Stopper, Gone };
    /// What whoever stops the thread asks for, and what its signal handler answered.
    enum Order : std::uint32_t {
        Idle,
        Asked,   ///< to stop, or to answer PutOff
        Watched, ///< to stop at the first tick that finds it possible
        Forced,  ///< to stop wherever it is
        PutOff,
        Taken,  ///< it stops, or has left its body already
        Raw,    ///< to go without another step
        Exiting ///< it goes
    };

    static thread_local EndGuard endGuard;

    static unsigned long NextId();
    static void* Main(void* word);
    unsigned int RunUnlessStopped();
    void Finish();
    void Publish();

    static bool OwnsSignal(const struct sigaction& action);
    static bool TakeSignal();
    static void UnblockSignal(sigset_t& mask);
    static void OnSignal(int number, siginfo_t* info, void* context);
    static bool IsShielded();
    void Obey(const void* context);
    [[noreturn]] void Jump();
    bool Stop();
    void Send();
    bool MustWait(const void* context);
    void AwaitAnswer(std::uint32_t asked, const Deadline& deadline);
    bool Watch();
    bool Join(const Deadline& deadline);
    bool Reap();
    bool ReapTheHardWay();
    [[nodiscard]] bool IsOffTheSystem() const;

    std::atomic<std::uint32_t> holders{2}; ///< the handle and the thread
    std::atomic<std::uint32_t> ended{0};   ///< 1 once ended, 2 while somebody sleeps on it
    std::atomic<std::uint32_t> order{Idle};
    const unsigned long id = NextId();
    std::atomic<pid_t> systemId{0}; ///< 0 until it runs
    std::atomic<int> phase{Starting};
    std::atomic<int> reaper{Nobody};
    EndEvent endEvent;
    pthread_t identity{};
    Frame* frame = nullptr;
    int looks = 0; ///< of the signal handler, as long as nothing came of them
    unsigned int exitCode = 0;
    std::atomic<unsigned int> stopCode{0};
};

} // namespace posix

#endif
