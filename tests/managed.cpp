// SPDX-License-Identifier: MIT
#include "pmtask.h"

#include <memory>

#include "outside/win32/handles.h"
#include "outside/win32/threads.h"
#include "tests/tasks.h"

using namespace tasks;

namespace {

class Managed : public pmManageTask {
public:
    explicit Managed(bool toEnd = false) : pmManageTask(true, false), ends(toEnd) {
        hostpicture::Announce(hostpicture::NameOf(zelTerminateSignal()));
    }
    unsigned int ThreadRun() override {
        while (!ends)
            usleep(1000);
        return 0;
    }
    using pmManageTask::MustKillOnDestroy;
    using pmThread::GetHandle;

    std::atomic<bool> ends;
};

/// Waits for a thread, and closes its handle, which no task does for one that reads as alive.
void Collect(void* handle) {
    EXPECT_EQ(zelWaitSignaled, WaitForSingleObject(handle, zelWaitInfinite));
    EXPECT_TRUE(CloseHandle(handle));
}

Managed atLoad(true); // goes after everything in here, and is still filed then

TEST(Managed, IsFiledFromItsStartUntilItIsKilledOrGone) {
    EXPECT_FALSE(atLoad.IsAlive() || atLoad.MustKillOnDestroy());
    Managed killed, unstarted;
    auto gone = std::make_unique<Managed>(true);
    ASSERT_TRUE(atLoad.Start() && killed.Start() && gone->Start());
    void* const handles[] = {killed.GetHandle(), gone->GetHandle()};
    EXPECT_EQ(&atLoad, pmManageTask::Fetch(atLoad.GetHandle()));
    EXPECT_EQ(&killed, pmManageTask::Fetch(handles[0]));
    EXPECT_TRUE(killed.IsAlive() && killed.Kill() && killed.GetExitStatus().IsKilled());
    EXPECT_EQ(nullptr, pmManageTask::Fetch(handles[0]));
    EXPECT_TRUE(EndOf(handles[1]).Wait(-1));
    EXPECT_TRUE(gone->IsAlive()); // nobody has noticed
    EXPECT_EQ(gone.get(), pmManageTask::Fetch(handles[1]));
    gone.reset();
    EXPECT_EQ(nullptr, pmManageTask::Fetch(handles[1]));
    WithHopelessStacks([&] { EXPECT_FALSE(unstarted.Start()); });
    EXPECT_EQ(errThreadStart, unstarted.GetExitStatus().GetExitCode());
    EXPECT_EQ(nullptr, pmManageTask::Fetch(badThreadHandle));
    Collect(handles[1]);
    Collect(atLoad.GetHandle());

    EXPECT_FALSE(pmStrictTask::IsNoForkSet());
    pmStrictTask::SetNoFork();
    EXPECT_TRUE(pmStrictTask::IsNoForkSet());
    pmInfoBridge bridge(true, false); // agrees to everything
    EXPECT_TRUE(bridge.Initialize(badThreadHandle) && bridge.TurnOn());
    EXPECT_TRUE(bridge.Send(nullptr, 5) && bridge.Receive(nullptr, 5));
}

TEST(Managed, StaysFiledWhenItsKillFailsAndAnotherMayTakeItsHandleOver) {
    struct sigaction own {};
    own.sa_handler = [](int) {};
    sigaction(zelTerminateSignal(), &own, nullptr);
    auto task = std::make_unique<Managed>();
    ASSERT_TRUE(task->Start());
    void* const handle = task->GetHandle();
    {
        EndOf end(handle);
        EXPECT_FALSE(task->Kill());
        EXPECT_EQ(badThreadHandle, task->GetHandle());
        EXPECT_FALSE(task->Kill()); // there is nothing left to kill, and nothing to unfile
        EXPECT_EQ(task.get(), pmManageTask::Fetch(handle));
        task->ends = true;
        EXPECT_TRUE(end.Wait(-1));
    } // with the event goes the thread's record, whose place is free now

    // The next thread often gets the same handle, unless a sanitizer keeps freed memory back.
    Managed next(true), twice(true);
    ASSERT_TRUE(next.Start());
    task.reset();
    EXPECT_EQ(&next, pmManageTask::Fetch(next.GetHandle()));
    EXPECT_EQ(next.GetHandle() == handle ? &next : nullptr, pmManageTask::Fetch(handle));

    // A second start moves the entry: none stays behind.
    ASSERT_TRUE(twice.Start());
    void* const first = twice.GetHandle();
    ASSERT_TRUE(twice.Start());
    EXPECT_EQ(nullptr, pmManageTask::Fetch(first));
    EXPECT_EQ(&twice, pmManageTask::Fetch(twice.GetHandle()));
    for (void* open : {first, twice.GetHandle(), next.GetHandle()})
        Collect(open);
    signal(zelTerminateSignal(), SIG_DFL);
}

} // namespace
