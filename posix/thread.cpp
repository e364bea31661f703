// SPDX-License-Identifier: MIT
#include "posix/thread.h"

#include <algorithm>
#include <climits>
#include <new>

__thread zelThreadSelf zelSelf = {nullptr, 0, 0, 0};

namespace posix {

namespace {

// Of the one kind that a signal handler may read.
[[gnu::tls_model("initial-exec")]] thread_local constinit Thread* current = nullptr;

/// What stands for each thread that was not started here.
class OtherThread final : public HandleObject {
public:
    void ReleaseHandle() override {}
};

void* StandIn() {
    alignas(OtherThread) static char place[sizeof(OtherThread)];
    static HandleObject* const other = new (place) OtherThread; // for good: threads outlive statics
    return other;
}

int Create(pthread_t& identity, std::size_t stackSize, void* (*entry)(void*), void* argument) {
    const sys::KeepErrno keep;
    pthread_attr_t attributes;
    int failure = pthread_attr_init(&attributes);
    if (failure != 0)
        return failure;
    const auto smallest = static_cast<std::size_t>(PTHREAD_STACK_MIN);
    if (stackSize != 0)
        failure = pthread_attr_setstacksize(&attributes, std::max(stackSize, smallest));
    if (failure == 0)
        failure = sys::pthread_create(&identity, &attributes, entry, argument);
    pthread_attr_destroy(&attributes);
    return failure;
}

} // namespace

thread_local Thread::EndGuard Thread::endGuard;

Thread::EndGuard::~EndGuard() {
    // In a forked process this is a copy of a thread that goes on in the parent, and the descriptor
    // of its end is the one of both.
    if (thread != nullptr && thread->systemId == sys::gettid())
        thread->Finish();
}

Thread* Thread::Launch(std::unique_ptr<Thread> made, std::size_t stackSize) {
    const int failure =
        made ? Create(made->identity, stackSize, &Thread::Main, made.get()) : ENOMEM;
    if (failure != 0) {
        made.reset();
        errno = failure;
    }
    return made.release();
}

Thread* Thread::FromHandle(void* handle) {
    // Null for a word that is odd: a descriptor.
    if ((reinterpret_cast<std::uintptr_t>(handle) & 1) != 0)
        return nullptr;
    return dynamic_cast<Thread*>(static_cast<HandleObject*>(handle));
}

Thread* Thread::Current() {
    return current;
}

void Thread::NameSelf() {
    zelSelf.handle = StandIn();
    zelSelf.id = NextId();
}

/// The system's own numbers will not do: it uses those of dead threads again, and the number that a
/// thread had before a fork may become another one's in the forked process.
unsigned long Thread::NextId() {
    static constinit std::atomic<unsigned long> last{0};
    unsigned long next = 0;
    do
        next = ++last;
    while (next == 0 || next == 0xFFFFFFFF);
    return next;
}

/// Whether a shield stands between the calling thread and its stop, which then is due.
bool Thread::IsShielded() {
    if (zelSelf.shields == 0)
        return false;
    zelSelf.stopIsDue = 1;
    return true;
}

void Thread::ObeyStop() {
    zelSelf.stopIsDue = 0;
    if (current != nullptr)
        current->Obey(nullptr);
}

void Thread::Drop() {
    if (holders.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete this;
}

bool Thread::WaitEnded(const Deadline& deadline) {
    for (;;) {
        std::uint32_t state = ended.load();
        if (state == 1)
            return true;
        if (deadline.HasPassed())
            return false;
        if (state == 2 || ended.compare_exchange_strong(state, 2))
            FutexWait(ended, 2, deadline);
    }
}

std::optional<unsigned int> Thread::ExitCode() {
    // Whoever was woken by the event need not find the end half told.
    if (endEvent.HasFired())
        WaitEnded(Deadline::Never());
    if (ended.load() != 1)
        return std::nullopt;
    return exitCode;
}

/// Tells the end: first to the event, then to all others, so that who knows of it by either way
/// finds it by both.
void Thread::Publish() {
    endEvent.Fire();
    if (ended.exchange(1) == 2)
        FutexWakeAll(ended);
}

/// The last that a thread does here. It detaches itself, unless somebody is stopping it just now
/// and will join it.
void Thread::Finish() {
    phase = Ending;
    zelSelf.handle = StandIn(); // what still runs on this thread must not be led to the record
    if (reaper.exchange(Gone) == Nobody) {
        current = nullptr;
        pthread_detach(pthread_self());
    } else {
        order = Taken;
        FutexWake(order, 1);
    }
    Publish();
    phase = Ended;
    Drop();
}

unsigned int Thread::RunUnlessStopped() {
    struct Leave {
        std::atomic<int>& phase;
        ~Leave() { phase = Returned; } // also when the body leaves by pthread_exit
    };
    int expected = Starting;
    if (!phase.compare_exchange_strong(expected, Running))
        return stopCode;
    const Leave leave{phase};
    return Run();
}

void* Thread::Main(void* word) {
    Thread* const thread = static_cast<Thread*>(word);
    current = thread;
    endGuard.thread = thread;
    zelSelf.handle = static_cast<HandleObject*>(thread);
    zelSelf.id = thread->id;
    thread->systemId = sys::gettid();
    Frame frame;
    thread->frame = &frame;
    UnblockSignal(frame.mask);
    if (sigsetjmp(frame.entry, 0) == 0) {
        thread->exitCode = thread->RunUnlessStopped();
    } else {
        pthread_sigmask(SIG_SETMASK, &frame.mask, nullptr);
        thread->exitCode = thread->stopCode;
    }
    return nullptr;
}

} // namespace posix
