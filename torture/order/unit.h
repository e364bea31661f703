// SPDX-License-Identifier: MIT
//
// What a program does with the library before main begins and after it has ended.
#ifndef PLINTH_TORTURE_ORDER_UNIT_H
#define PLINTH_TORTURE_ORDER_UNIT_H

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <unistd.h>

#include <asynccall.h>
#include <dsstring.h>
#include <dsunique.h>
#include <execproc.h>
#include <outside/win32/threads.h>
#include <pmtask.h>
#include <prolock.h>
#include <zelprof.h>

// Each unit has its own of everything here.
namespace order {
namespace {

/// The name of this unit, which its faults are told under.
constexpr char unit[] = PLINTH_ORDER_UNIT;

[[maybe_unused]] void Require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "order: %s: wrong: %s\n", unit, what);
    _exit(1);
}

/// One letter, without a stream that may not be there yet or any more.
[[maybe_unused]] void Tell(char letter) {
    Require(write(STDERR_FILENO, &letter, 1) == 1, "output");
}

struct Managed : pmManageTask {
    Managed() : pmManageTask(true, false) {}
    unsigned int ThreadRun() override { return 3; }
    using pmThread::GetHandle;
};

struct Strict : pmStrictTask {
    unsigned int ThreadRun() override { return 4; }
};

struct Blocked : pmThread {
    unsigned int ThreadRun() override {
        for (;;)
            pause();
    }
};

[[maybe_unused]] void UseStrings() {
    const dsUniqueString first("interned by all"), second("interned by all"), own(unit);
    Require(first == second && first != own, "interned strings");
    Require(std::strcmp(own, unit) == 0, "the text of an interned string");
    dsString joined;
    joined = "joined ";
    joined += unit;
    Require(joined.ReplaceSubStr("joined ", "", 0) == 1 && std::strcmp(joined, unit) == 0,
            "strings");
}

[[maybe_unused]] void UseLocks() {
    proMutex mutex;
    Require(mutex.Lock() && mutex.TryLock() && mutex.Unlock() && mutex.Unlock(), "a mutex");
    proSimpleSem semaphore(1);
    Require(semaphore.Decrement() && semaphore.Increment() && !semaphore.Increment(),
            "a semaphore");
}

[[maybe_unused]] int Twice(void* number) {
    return 2 * *static_cast<int*>(number);
}

[[maybe_unused]] void UseTasks(bool alsoKill) {
    Managed managed;
    Require(managed.Start() && pmManageTask::Fetch(managed.GetHandle()) == &managed,
            "a managed task");
    Require(WaitForSingleObject(managed.GetHandle(), zelWaitInfinite) == zelWaitSignaled,
            "the end of a thread");
    managed.pmThread::GetExitStatus().setStatus(errOK); // the handle goes with the task
    Strict strict;
    Require(strict.Start(), "a strict task");
    ptkStrictTaskEvent end(&strict);
    zelEvent* const event = &end;
    Require(zelEvent::WaitAny(&event, 1, -1) == 0 && ptkStrictTaskEvent::cast(event) == &end,
            "the event of a strict task");
    strict.pmThread::GetExitStatus().setStatus(errOK);
    Blocked blocked;
    Require(!alsoKill || (blocked.Start() && blocked.Kill()), "a kill");
    int number = 21;
    const std::unique_ptr<ptkAsyncCallEvent> call(call_async_func(Twice, &number));
    Require(call && call->GetDescriptor() != -1 && call->Wait(-1) && call->GetReturnValue() == 42,
            "an asynchronous call");
}

[[maybe_unused]] void UseProcesses() {
    ExecProcess child("sh -c 'exit 7'", 0);
    Require(child.Start() && child.WaitForProcess() == 7, "a child process");
}

[[maybe_unused]] void UseEverything(bool alsoKill = true) {
    static ProfileEntry work(unit);
    const ProfilePoint point(&work);
    UseStrings();
    UseLocks();
    UseTasks(alsoKill);
    UseProcesses();
}

/// Uses the library when it is made, keeps parts of it, and uses it when it goes.
class [[maybe_unused]] Whole {
public:
    Whole() : kept(unit), entry("kept") {
        UseEverything();
        Require(mutex.Lock() && mutex.Unlock() && task.Start(), "a start before main");
        Tell('+');
    }
    ~Whole() {
        Require(std::strcmp(kept, unit) == 0 && mutex.Lock() && mutex.Unlock(), "what was kept");
        Require(pmManageTask::Fetch(task.GetHandle()) == &task, "a task that was kept");
        WaitForSingleObject(task.GetHandle(), zelWaitInfinite);
        task.pmThread::GetExitStatus().setStatus(errOK);
        UseEverything();
        Tell('-');
    }

private:
    dsUniqueString kept;
    ProfileEntry entry;
    proMutex mutex;
    Managed task;
};

/// Does not know the library before it goes.
class [[maybe_unused]] Late {
public:
    constexpr Late() = default;
    ~Late() {
        UseEverything();
        Tell('!');
    }
};

} // namespace
} // namespace order

#endif
