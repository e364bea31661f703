// SPDX-License-Identifier: MIT
#include <atomic>
#include <csignal>
#include <memory>

#include <asynccall.h>
#include <pmtask.h>
#include <prolock.h>

#include "outside/varnholt/service.h"
#include "outside/varnholt/threads.h"
#include "outside/win32/files.h"
#include "outside/win32/handles.h"
#include "outside/win32/threads.h"
#include "sweep.h"

namespace {

using namespace sweep;

/// A task of one of the three kinds that runs until it is let go.
template <typename Kind>
struct Task : Kind {
    template <typename... Arguments>
    explicit Task(Arguments... arguments) : Kind(arguments...) {
        gate.Decrement();
    }
    unsigned int ThreadRun() override {
        started = true;
        gate.Decrement();
        return 5;
    }
    /// Lets it run to its end.
    void End() {
        gate.Increment();
        WaitForSingleObject(Kind::GetHandle(), zelWaitInfinite);
    }
    using Kind::GetHandle;
    proSimpleSem gate{1};
    std::atomic<bool> started{false};
};

int Seven(void*) {
    return 7;
}

void RunTask() {
    Task<pmThread> task;
    const bool started = Try(false, [&] { return task.Start(); });
    Expect(started || !MustWork(), "it starts");
    Try([&] { task.OnFailedStart(), task.OnSuccessfullStart(), task.Unlocked(true); });
    if (!started) {
        Expect(task.GetExitStatus().GetExitCode() == errThreadStart || MemoryFails(), "says why");
        Expect(task.Start(), "the next start succeeds");
    }
    task.gate.Increment();
    unsigned int ended = zelWaitFailed;
    Try([&] { ended = WaitForSingleObject(task.GetHandle(), 20000); });
    Expect(ended == zelWaitSignaled || !MustWork(), "it ends");
    task.End();
    task.GetExitStatus().setStatus(errOK); // and so the handle goes with the object
}

void KillTask() {
    Task<pmThread> task;
    Try([] { Expect(zelTerminateSignal() > 0, "there is a signal"); });
    if (!task.Start())
        return;
    const bool gone = Try(false, [&] { return task.Kill(); });
    Expect(gone || !MustWork(), "it is gone");
    Expect(task.GetExitStatus().IsKilled(), "the record says so in any case");
    if (!gone)
        task.gate.Increment(); // it runs on
}

void StrictTask() {
    Task<pmStrictTask> task;
    const bool started = Try(false, [&] { return task.Start(); });
    Expect(started || !MustWork(), "it starts");
    if (!started && !task.Start())
        return;
    std::unique_ptr<ptkStrictTaskEvent> event;
    Try([&] { event = std::make_unique<ptkStrictTaskEvent>(&task); });
    Expect(event != nullptr || MemoryFails(), "an event");
    bool fired = true;
    if (event != nullptr)
        Try([&] { fired = event->IsSignaled(); });
    Expect(!fired || event == nullptr || !MustWork(), "it runs");
    task.gate.Increment();
    if (event != nullptr) {
        Expect(ptkStrictTaskEvent::cast(event.get()) != nullptr, "of its kind");
        Expect(event->GetProcess() == task.GetHandle(), "of this task");
        fired = false;
        Try([&] { fired = event->Wait(event->GetDescriptor() != -1 ? 20000 : 0); });
        Expect(fired || !MustWork(), "it fires");
        Try([&] { event.reset(); });
    }
    task.End();
    Expect(!task.Kill(), "nobody kills it");
    CloseHandle(task.GetHandle());
}

void ManagedTask() {
    std::unique_ptr<Task<pmManageTask>> task;
    Try([&] { task = std::make_unique<Task<pmManageTask>>(false, false); });
    Expect(task != nullptr || !MustWork(), "it is made");
    if (task == nullptr)
        return;
    const bool started = Try(false, [&] { return task->Start(); });
    Expect(started || !MustWork(), "it starts");
    void* handle = task->GetHandle();
    if (started)
        Expect(pmManageTask::Fetch(handle) == task.get(), "it is filed");
    else
        Expect(handle == badThreadHandle, "nothing runs that was not started");
    if (handle != badThreadHandle) {
        const bool gone = Try(false, [&] { return task->Kill(); });
        Expect(gone || !MustWork(), "it is gone");
        if (!gone)
            task->gate.Increment();
        else
            Expect(pmManageTask::Fetch(handle) == nullptr, "it is filed no more");
    }
    Try([&] { task.reset(); });
    Try([] {
        pmInfoBridge bridge(false, false);
        char data[] = "data";
        Expect(bridge.Initialize(badThreadHandle) && bridge.Send(data, 4) &&
                   bridge.Receive(data, 4) && bridge.TurnOn(),
               "nothing travels");
        pmStrictTask::SetNoFork();
        Expect(pmStrictTask::IsNoForkSet(), "the mark stays");
    });
}

void AsyncCall() {
    std::unique_ptr<ptkAsyncCallEvent> event;
    Try([&] { event.reset(call_async_func(Seven, nullptr)); });
    Expect(event != nullptr || !MustWork(), "it is called");
    if (event == nullptr)
        return;
    bool fired = false;
    Try([&] { fired = event->Wait(event->GetDescriptor() != -1 ? 20000 : 0); });
    Expect(fired || !MustWork(), "it fires");
    int value = -1;
    Try([&] { value = event->GetReturnValue(); });
    Expect(value == 7 || (!fired && value == -1) || !MustWork(), "its result");
    Expect(ptkAsyncCallEvent::cast(event.get()) == event.get(), "it is one of calls");
    Try([&] { event.reset(); });
}

void NativeThreads() {
    void* const none = zelHandleOfDescriptor(-1);
    void* launched = none;
    Try([&] { launched = StrictThread_Launch(Seven, nullptr, nullptr); });
    Expect(launched != none || !MustWork(), "it starts");
    if (launched != none) {
        int code = -1;
        for (int i = 0; i < 200000 && !StrictThread_GetExitCode(launched, &code); ++i)
            Sleep(0);
        Try([&] { StrictThread_Free(launched); });
    }
    void* thread = nullptr;
    unsigned int id = 0;
    static void* gate;
    gate = uCreateSemaphore(nullptr, 0, 1, nullptr);
    const auto body = [](void*) -> unsigned int { return WaitForSingleObject(gate, 20000); };
    Try([&] { thread = _beginthreadex(nullptr, 0, body, nullptr, 0, &id); });
    Expect(thread != nullptr ? id != 0 : !MustWork(), "it starts");
    if (thread != nullptr) {
        unsigned int result = zelWaitFailed;
        Try([&] { result = WaitForSingleObject(thread, 1); });
        Expect(result == zelWaitTimeout || !MustWork(), "it runs");
        if (!Try(false, [&] { return TerminateThread(thread, 3); })) {
            Expect(!MustWork(), "it is stopped");
            Expect(ReleaseSemaphore(gate, 1, nullptr), "it can be let go");
        }
        WaitForSingleObject(thread, zelWaitInfinite);
        Try([&] { CloseHandle(thread); });
    }
    CloseHandle(gate);
}

void Semaphore() {
    std::unique_ptr<proSimpleSem> semaphore;
    Try([&] { semaphore = std::make_unique<proSimpleSem>(2); });
    Expect(semaphore != nullptr || MemoryFails(), "it is made");
    if (semaphore == nullptr)
        return;
    if (semaphore->GetHandle() == nullptr) {
        Expect(MemoryFails(), "it has a handle");
        return;
    }
    bool taken = true;
    Try([&] { taken = semaphore->Decrement() && semaphore->Decrement(); });
    Expect(taken, "it gives what it has");
    unsigned int result = zelWaitFailed;
    Try([&] { result = WaitForSingleObject(semaphore->GetHandle(), 1); });
    Expect(result == zelWaitTimeout, "and no more");
    Try([&] { Expect(semaphore->Increment() && semaphore->Decrement(), "it takes one back"); });
    Try([&] { semaphore.reset(); });
}

/// What two threads do to each other under a mutex, with all of its waits going wrong.
void Mutex() {
    proMutex mutex;
    Expect(Try(false, [&] { return mutex.Initialize(); }), "it is ready");
    static std::atomic<proMutex*> shared;
    static int count;
    shared = &mutex;
    count = 0;
    const auto body = [](void*) -> unsigned int {
        for (int i = 0; i < 50; ++i) {
            shared.load()->Lock();
            const int now = count;
            Sleep(0);
            count = now + 1;
            shared.load()->Unlock();
        }
        return 0;
    };
    mutex.Lock();
    void* const other = _beginthreadex(nullptr, 0, body, nullptr, 0, nullptr);
    {
        const Armed armed;
        Sleep(1); // the other one waits meanwhile
        mutex.Unlock();
        body(nullptr);
    }
    WaitForSingleObject(other, zelWaitInfinite);
    CloseHandle(other);
    Expect(count == 100, "one at a time");
    Expect(mutex.TryLock() && mutex.Unlock(), "it is free");
}

void Service() {
    std::unique_ptr<zelService> service;
    Try([&] { service = std::make_unique<zelService>(); });
    Expect(service != nullptr || !MustWork(), "it is made");
    if (service == nullptr)
        return;
    Try([&] { Expect(!service->IsStopSignaled(), "not yet"); });
    const bool taken = Try(false, [&] { return service->StopOnSignal(SIGUSR1); });
    Expect(taken || !MustWork(), "a signal is taken");
    if (taken)
        raise(SIGUSR1);
    Try([&] { service->RequestStop(); });
    Try([&] { service->DoPause(); });
    Expect(service->IsStopSignaled(), "it is to stop");
    Try([&] { service.reset(); });
}

const Scenario scenarios[] = {
    {"run a task", "pmThread::* pmTask::* pmExitStatus::*", RunTask},
    {"kill a task", "pmThread::Kill pmThread::EndThread zelTerminateSignal", KillTask},
    {"a strict task", "pmStrictTask::* ptkStrictTaskEvent::* zelMOEvent::*", StrictTask},
    {"a managed task", "pmManageTask::* pmInfoBridge::*", ManagedTask},
    {"an asynchronous call", "call_async_func ptkAsyncCallEvent::*", AsyncCall},
    {"native threads",
     "StrictThread_* _beginthreadex TerminateThread WaitForSingleObject uCreateSemaphore "
     "ReleaseSemaphore Sleep",
     NativeThreads},
    {"a semaphore", "proSimpleSem::* proSemaphoreBase::*", Semaphore},
    {"a mutex", "proMutex::* zelEnterHeldSection zelLeaveSharedSection", Mutex},
    {"a service", "zelService::* zelServiceBase::*", Service},
};

} // namespace

namespace sweep {
const Family threads{"threads", scenarios};
}
