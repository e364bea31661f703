// SPDX-License-Identifier: MIT
#include "pmtask.h"

#include <memory>

#include "outside/win32/handles.h"
#include "outside/win32/threads.h"
#include "tests/tasks.h"
#include "tests/weather.h"

using namespace tasks;

namespace {

class Managed : public pmManageTask {
public:
    explicit Managed(bool toEnd = false) : pmManageTask(true, false), ends(toEnd) {}
    unsigned int ThreadRun() override {
        while (!ends)
            usleep(1000);
        return 0;
    }
    using pmManageTask::MustKillOnDestroy;
    using pmThread::GetHandle;

    std::atomic<bool> ends;
};

/// Waits for the thread, and closes its handle, which the task itself leaves open.
void End(Managed& task, void* handle) {
    task.ends = true;
    EXPECT_EQ(zelWaitSignaled, WaitForSingleObject(handle, zelWaitInfinite));
    EXPECT_TRUE(CloseHandle(handle));
}

Managed atLoad; // goes after everything in here, and is still filed then

TEST(Managed, IsFiledFromItsStartUntilItIsKilledOrGone) {
    EXPECT_FALSE(atLoad.IsAlive() || atLoad.MustKillOnDestroy());
    ASSERT_TRUE(atLoad.Start());
    EXPECT_TRUE(atLoad.IsAlive());
    EXPECT_EQ(&atLoad, pmManageTask::Fetch(atLoad.GetHandle()));

    Managed killed;
    auto gone = std::make_unique<Managed>();
    ASSERT_TRUE(killed.Start() && gone->Start());
    void* const handles[] = {killed.GetHandle(), gone->GetHandle()};
    EXPECT_EQ(&killed, pmManageTask::Fetch(handles[0]));
    EXPECT_EQ(gone.get(), pmManageTask::Fetch(handles[1]));
    EXPECT_TRUE(killed.Kill());
    EXPECT_TRUE(killed.GetExitStatus().IsKilled());
    EXPECT_EQ(nullptr, pmManageTask::Fetch(handles[0]));
    gone->ends = true;
    EXPECT_EQ(zelWaitSignaled, WaitForSingleObject(handles[1], zelWaitInfinite));
    EXPECT_TRUE(gone->IsAlive()); // nobody has noticed
    gone.reset();
    EXPECT_EQ(nullptr, pmManageTask::Fetch(handles[1]));
    EXPECT_TRUE(CloseHandle(handles[1]));

    Managed unstarted;
    WithHopelessStacks([&] { EXPECT_FALSE(unstarted.Start()); });
    EXPECT_EQ(errThreadStart, unstarted.GetExitStatus().GetExitCode());
    EXPECT_EQ(nullptr, pmManageTask::Fetch(badThreadHandle));
    End(atLoad, atLoad.GetHandle());
}

TEST(Managed, StaysFiledWhenItsKillFailsAndAnotherMayTakeItsHandleOver) {
    struct sigaction own {
    }, former{};
    own.sa_handler = [](int) {};
    sigaction(zelTerminateSignal(), &own, &former);
    auto task = std::make_unique<Managed>();
    ASSERT_TRUE(task->Start());
    void* const handle = task->GetHandle();
    EndOf end(handle);
    EXPECT_FALSE(task->Kill());
    EXPECT_TRUE(task->GetExitStatus().IsKilled());
    EXPECT_EQ(badThreadHandle, task->GetHandle());
    EXPECT_EQ(task.get(), pmManageTask::Fetch(handle));
    EXPECT_FALSE(task->Kill()); // there is nothing left to kill, and nothing to unfile
    EXPECT_EQ(task.get(), pmManageTask::Fetch(handle));
    task->ends = true;
    EXPECT_TRUE(end.Wait(-1));
    end.~EndOf();
    new (&end) EndOf(nullptr); // with the event goes the thread's record, whose place is free now

    // The next thread often gets the same handle, unless a sanitizer keeps freed memory back.
    Managed next(true);
    ASSERT_TRUE(next.Start());
    void* const taken = next.GetHandle();
    EXPECT_EQ(&next, pmManageTask::Fetch(taken));
    task.reset();
    EXPECT_EQ(&next, pmManageTask::Fetch(taken));
    EXPECT_EQ(taken == handle ? &next : nullptr, pmManageTask::Fetch(handle));
    sigaction(zelTerminateSignal(), &former, nullptr);

    // A second start moves the entry: none stays behind.
    Managed twice(true);
    ASSERT_TRUE(twice.Start());
    void* const first = twice.GetHandle();
    ASSERT_TRUE(twice.Start());
    EXPECT_EQ(nullptr, pmManageTask::Fetch(first));
    EXPECT_EQ(&twice, pmManageTask::Fetch(twice.GetHandle()));
    End(twice, first);
    End(twice, twice.GetHandle());
    End(next, taken);
}

TEST(Managed, HasABridgeThatAgreesToEverything) {
    pmInfoBridge bridge(true, false);
    EXPECT_TRUE(bridge.Initialize(badThreadHandle) && bridge.TurnOn());
    EXPECT_TRUE(bridge.Send(nullptr, 5) && bridge.Receive(nullptr, 5));
    EXPECT_FALSE(pmStrictTask::IsNoForkSet());
    pmStrictTask::SetNoFork();
    EXPECT_TRUE(pmStrictTask::IsNoForkSet());
}

} // namespace
