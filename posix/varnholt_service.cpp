// SPDX-License-Identifier: MIT
#include "outside/varnholt/service.h"

#include <atomic>

#include "posix/syscalls.h"

class zelServiceEvent {
public:
    std::atomic<bool> requested{false};
};

namespace {

/// What the process knows of one signal. It is static, so that a handler that is still running
/// when its service goes touches nothing of the service.
struct TakenSignal {
    std::atomic<bool> arrived;
    std::atomic<const zelServiceEvent*> owner;
    struct sigaction former;
};
static_assert(std::atomic<bool>::is_always_lock_free, "the handler stores to one");

TakenSignal takenSignals[NSIG];

void NoteArrival(int signal) {
    takenSignals[signal].arrived = true;
}

/// A handler that returns from one of these runs into the same fault again, for ever.
bool IsFault(int signal) {
    return signal == SIGSEGV || signal == SIGBUS || signal == SIGFPE || signal == SIGILL;
}

} // namespace

bool zelServiceBase::IsEventSignaled(const zelServiceEvent* event) {
    if (event->requested)
        return true;
    for (const TakenSignal& taken : takenSignals)
        if (taken.owner == event && taken.arrived)
            return true;
    return false;
}

zelService::zelService() : stopEvent(std::make_unique<zelServiceEvent>()) {}

zelService::~zelService() {
    const sys::KeepErrno keep;
    for (int signal = 1; signal < NSIG; ++signal) {
        TakenSignal& taken = takenSignals[signal];
        if (taken.owner != stopEvent.get())
            continue;
        struct sigaction now;
        if (sys::sigaction(signal, nullptr, &now) == 0 && now.sa_handler == NoteArrival)
            sys::sigaction(signal, &taken.former, nullptr);
        taken.owner = nullptr;
    }
}

void zelService::DoPause() {}

void zelService::RequestStop() {
    stopEvent->requested = true;
}

bool zelService::StopOnSignal(int signal) {
    if (signal < 1 || signal >= NSIG || IsFault(signal)) {
        errno = EINVAL;
        return false;
    }
    TakenSignal& taken = takenSignals[signal];
    const zelServiceEvent* holder = nullptr;
    if (!taken.owner.compare_exchange_strong(holder, stopEvent.get())) {
        if (holder == stopEvent.get())
            return true;
        errno = EBUSY;
        return false;
    }
    taken.arrived = false;
    struct sigaction action {};
    action.sa_handler = NoteArrival;
    action.sa_flags = SA_RESTART | SA_ONSTACK; // the host's own calls are to notice nothing
    if (sys::sigaction(signal, &action, &taken.former) == 0)
        return true;
    taken.owner = nullptr;
    return false;
}

bool zelService::IsStopSignaled() {
    return IsEventSignaled(stopEvent.get());
}
