// SPDX-License-Identifier: MIT
#include <memory>
#include <optional>

#include <asynccall.h>
#include <pmtask.h>
#include <prolock.h>

#include "costs.h"

namespace {

using namespace costs;

void Mutex() {
    proMutex mutex;
    Count([&] { mutex.Lock(), mutex.Unlock(); });
}

void TryMutex() {
    proMutex mutex;
    Count([&] { Require(mutex.TryLock() && mutex.Unlock()); });
}

void MakeSemaphore() {
    Count([] { const proSimpleSem semaphore(1); });
}

void Semaphore() {
    proSimpleSem semaphore(1);
    Count([&] { Require(semaphore.Decrement() && semaphore.Increment()); });
}

const Row lockRows[] = {
    {"proMutex locked and unlocked", Mutex},
    {"proMutex tried and unlocked", TryMutex},
    {"proSimpleSem made and destroyed", MakeSemaphore},
    {"proSimpleSem taken and given back", Semaphore},
};

template <typename Base>
struct Task : Base {
    using Base::Base;
    unsigned int ThreadRun() override {
        this->GetExitStatus().setExitCode(0);
        return 0;
    }
};

void Thread() {
    std::optional<Task<pmThread>> task;
    Count([&] { task.emplace(); },
          [&] {
              Require(task->Start());
              AwaitThreads();
              task.reset();
          });
}

void ManagedThread() {
    std::optional<Task<pmManageTask>> task;
    Count([&] { task.emplace(false, false); },
          [&] {
              Require(task->Start());
              AwaitThreads();
              task.reset();
          });
}

void StrictThread() {
    std::optional<Task<pmStrictTask>> task;
    Count([&] { task.emplace(); },
          [&] {
              Require(task->Start());
              AwaitThreads();
              Require(ptkStrictTaskEvent(&*task).Wait(-1));
              task.reset();
          });
}

void SelfHandle() {
    Count([] { Require(GetTaskSelfHandle() != nullptr); });
}

int Nothing(void*) {
    return 7;
}

void AsyncCall() {
    Count([] {
        const std::unique_ptr<ptkAsyncCallEvent> call(call_async_func(Nothing, nullptr));
        AwaitThreads();
        Require(call->Wait(-1) && call->GetReturnValue() == 7);
    });
}

void AsyncCallByDescriptor() {
    Count([] {
        const std::unique_ptr<ptkAsyncCallEvent> call(call_async_func(Nothing, nullptr));
        AwaitThreads();
        Require(call->GetDescriptor() != -1 && call->GetReturnValue() == 7);
    });
}

const Row taskRows[] = {
    {"pmThread started and ended", Thread},
    {"pmManageTask started and ended", ManagedThread},
    {"pmStrictTask started, ended and waited for", StrictThread},
    {"call_async_func, waited for", AsyncCall},
    {"call_async_func, with a descriptor for its end", AsyncCallByDescriptor},
    {"GetTaskSelfHandle", SelfHandle},
};

} // namespace

const Family costs::locks{"Locks that are free", lockRows};
const Family costs::tasks{"Threads, without the waiting", taskRows};
