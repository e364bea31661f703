// SPDX-License-Identifier: MIT
//
// Stopping a thread: a private signal whose handler jumps back to the thread's entry function,
// from where it ends like any other. Cancellation will not do: it unwinds, and it aborts the
// process wherever it meets a function that must not throw.
#include "outside/win32/threads.h"
#include "posix/codeguard.h"
#include "posix/keeploaded.h"
#include "posix/thread.h"

namespace posix {

namespace {

using std::chrono::milliseconds;

// How long a thread may take to answer at all, and to end after it has left its body.
constexpr milliseconds answerPatience{1000};
constexpr milliseconds endPatience{300};

// A thread that is found where it must not be stopped is looked at again at each tick while it
// runs. So many looks go by because it executes a signal handler (20 ms), and guarded code
// (250 ms). Time that it does not run does not count: signals that have waited meanwhile come all
// at once, and find it in the first handler of them.
constexpr long tickNanoseconds = 50'000;
constexpr int handlerLooks = 400;
constexpr int guardLooks = 5000;

/// Sends the private signal to a thread every now and then while it runs, so that the thread is
/// looked at often however seldom the one who stops it gets to run.
class Ticker {
public:
    Ticker(pid_t thread, void* record) {
        sigevent event = {};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = zelTerminateSignal();
        event.sigev_value.sival_ptr = record;
        event._sigev_un._tid = thread;
        ticks = sys::timer_create(CLOCK_MONOTONIC, &event, &timer) == 0;
        const timespec interval{0, tickNanoseconds};
        const itimerspec setting{interval, interval};
        if (ticks)
            sys::timer_settime(timer, 0, &setting, nullptr);
    }
    Ticker(const Ticker&) = delete;
    Ticker& operator=(const Ticker&) = delete;
    ~Ticker() {
        if (ticks)
            sys::timer_delete(timer);
    }

private:
    timer_t timer{};
    bool ticks;
};

bool IsFree(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL;
}

} // namespace

/// Whether the private signal is the library's to use.
bool Thread::OwnsSignal(const struct sigaction& action) {
    return IsFree(action) ||
           ((action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == &Thread::OnSignal);
}

/// Makes sure that the private signal has its handler; false if the program uses the signal.
bool Thread::TakeSignal() {
    struct sigaction action = {};
    sys::sigaction(zelTerminateSignal(), nullptr, &action);
    if (!IsFree(action))
        return OwnsSignal(action);
    KeepLoaded();
    LearnGuardedCode();
    struct sigaction wanted = {};
    wanted.sa_sigaction = &Thread::OnSignal;
    wanted.sa_flags = SA_SIGINFO; // no SA_RESTART: a blocked call must be seen to be cut short
    sigfillset(&wanted.sa_mask);
    sys::sigaction(zelTerminateSignal(), &wanted, &action);
    if (OwnsSignal(action))
        return true;
    sys::sigaction(zelTerminateSignal(), &action, nullptr); // the program was quicker
    return false;
}

/// Lets the private signal through on the calling thread, unless the program has a use of its own
/// for it. `mask` takes the mask that the thread then has.
void Thread::UnblockSignal(sigset_t& mask) {
    struct sigaction action = {};
    sys::sigaction(zelTerminateSignal(), nullptr, &action);
    sigset_t set;
    sigemptyset(&set);
    if (OwnsSignal(action))
        sigaddset(&set, zelTerminateSignal());
    pthread_sigmask(SIG_UNBLOCK, &set, &mask);
    if (OwnsSignal(action))
        sigdelset(&mask, zelTerminateSignal());
}

void Thread::OnSignal(int, siginfo_t* info, void* context) {
    // Whoever else sends this signal, for whatever reason, means another word or another thread.
    Thread* const self = Current();
    const bool mayBeOurs = info->si_code == SI_QUEUE || info->si_code == SI_TIMER;
    if (mayBeOurs && self != nullptr && info->si_value.sival_ptr == self)
        self->Obey(context);
}

bool Thread::MustWait(const void* context) {
    if (phase != Running) // it has left its body, and ends by itself
        return false;
    ++looks;
    return (looks <= guardLooks && IsInGuardedCode(context)) ||
           (looks <= handlerLooks && IsInHandler(context, frame->mask));
}

/// Does what is asked, in a signal handler or, without a context, when the last shield has fallen.
void Thread::Obey(const void* context) {
    std::uint32_t asked = order;
    const bool isShielded = IsShielded();
    if (asked == Raw) {
        if (!isShielded && phase != Ending && order.compare_exchange_strong(asked, Exiting))
            sys::exit_thread();
        return;
    }
    if (asked != Asked && asked != Watched && asked != Forced)
        return; // asked too long ago
    const bool mustWait =
        isShielded || (asked != Forced && context != nullptr && MustWait(context));
    if (mustWait && asked != Asked)
        return; // until the next tick, or the fall of the shield
    if (!order.compare_exchange_strong(asked, mustWait ? PutOff : Taken))
        return;
    FutexWake(order, 1);
    if (!mustWait && phase == Running)
        Jump();
}

void Thread::Jump() {
    phase = Stopped;
    siglongjmp(frame->entry, 1);
}

/// Gets the thread to leave its body; false if it does not answer.
bool Thread::Stop() {
    int expected = Starting;
    if (phase.compare_exchange_strong(expected, Stopped))
        return true;
    looks = 0;
    std::uint32_t state = Idle;
    // Anything else stands here when the thread leaves, or an earlier try came that far.
    if (!order.compare_exchange_strong(state, Asked))
        return true;
    Send();
    AwaitAnswer(Asked, Deadline::In(answerPatience));
    if (order == PutOff)
        return Watch();
    state = Asked;
    return !order.compare_exchange_strong(state, Idle);
}

/// Stops a thread that was found where it must not be stopped: as soon as it gets out of there,
/// and after some time all the same.
bool Thread::Watch() {
    std::uint32_t asked = PutOff;
    const Ticker ticker(systemId, this);
    for (const Order next : {Watched, Forced}) {
        // What stands there is still the question, or else the thread leaves.
        if (!order.compare_exchange_strong(asked, next))
            return true;
        asked = next;
        Send(); // the ticker may be one too many for the system
        AwaitAnswer(asked, Deadline::In(answerPatience));
    }
    return !order.compare_exchange_strong(asked, Idle);
}

void Thread::Send() {
    // It fails where too many signals wait, and then perhaps not again; and on a thread that is
    // gone, which leaves its answer as it goes.
    const Deadline deadline = Deadline::In(answerPatience);
    while (sys::pthread_sigqueue(identity, zelTerminateSignal(), sigval{.sival_ptr = this}) ==
               EAGAIN &&
           !deadline.HasPassed())
        sys::sched_yield();
}

/// Waits until something else stands there than what was asked.
void Thread::AwaitAnswer(std::uint32_t asked, const Deadline& deadline) {
    while (order == asked && !deadline.HasPassed())
        FutexWait(order, asked, deadline);
}

bool Thread::Join(const Deadline& deadline) {
    while (pthread_tryjoin_np(identity, nullptr) != 0) {
        if (deadline.HasPassed())
            return false;
        sys::sched_yield();
    }
    return true;
}

/// Sees a thread that has left its body to its end.
bool Thread::Reap() {
    const Deadline deadline = Deadline::In(endPatience);
    return (WaitEnded(deadline) && Join(deadline)) || ReapTheHardWay();
}

/// The thread hangs in its own end, on a lock that it took along for one. It is made to go without
/// another step. Its stack must not be used again, since the C library would find the dead
/// thread's data there, so it is left where it is.
bool Thread::ReapTheHardWay() {
    order = Raw;
    Send();
    const Deadline deadline = Deadline::In(answerPatience);
    while (!IsOffTheSystem()) {
        if (deadline.HasPassed())
            return false;
        PollUntil(nullptr, 0, Deadline::InMilliseconds(1));
    }
    if (order != Exiting)
        return Join(deadline); // it got there by itself in the meantime
    if (reaper.exchange(Gone) != Gone) {
        exitCode = stopCode;
        Publish();
        Drop();
    }
    return true;
}

bool Thread::IsOffTheSystem() const {
    return systemId != 0 && sys::tgkill(sys::getpid(), systemId, 0) != 0 && errno == ESRCH;
}

bool Thread::Terminate(unsigned int code) {
    if (Current() == this) {
        stopCode = code;
        if (phase == Running)
            Jump();
        errno = ESRCH;
        return false;
    }
    if (ExitCode())
        return true;
    // Whoever is stopped half-way here leaves a thread that nobody can stop.
    const zelStopShield shield;
    if (!TakeSignal()) {
        errno = EBUSY;
        return false;
    }
    int expected = Nobody;
    if (!reaper.compare_exchange_strong(expected, Stopper)) {
        // It ends by itself, or another thread stops it.
        const bool isGone = WaitEnded(Deadline::In(answerPatience));
        if (!isGone)
            errno = ETIMEDOUT;
        return isGone;
    }
    Hold();
    stopCode = code;
    if (Stop() && Reap()) {
        Drop();
        return true;
    }
    expected = Stopper;
    if (!reaper.compare_exchange_strong(expected, Nobody))
        pthread_detach(identity);
    else if (order != Raw)
        Drop(); // in all other cases a signal may still be under way, and needs the record
    errno = ETIMEDOUT;
    return false;
}

} // namespace posix
