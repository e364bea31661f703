// SPDX-License-Identifier: MIT
#include "tasks/taskmap.h"

#include "ds/lasting.h"
#include "outside/win32/threads.h"
#include "pmtask.h"

dsScalarMap<pmManageTask*, void*>& TaskMap() {
    return LastingMap<dsScalarMap<pmManageTask*, void*>>();
}

pmInfoBridge::pmInfoBridge(bool first, bool second)
    : ownerThread(GetCurrentThread()), peerHandle(nullHandle), firstFlag(first),
      secondFlag(second), words{} {}

pmInfoBridge::~pmInfoBridge() = default;

bool pmInfoBridge::Initialize(void* const& handle) {
    peerHandle = handle;
    return mutex.Initialize();
}

bool pmInfoBridge::Send(char*, int) {
    return true;
}

bool pmInfoBridge::Receive(char*, int) {
    return true;
}

bool pmInfoBridge::TurnOn() {
    return true;
}

pmManageTask::pmManageTask(bool first, bool second)
    : taskKey(pmInfoBridge::nullHandle), bridge(first, second) {}

pmManageTask::~pmManageTask() {
    Unfile();
}

/// Takes the task's own entry out. Another task may have got the same handle since and be filed
/// under it.
void pmManageTask::Unfile() {
    if (Fetch(taskKey) == this)
        TaskMap().Remove(taskKey);
}

bool pmManageTask::Start() {
    // Once the thread runs nothing may fail, so the room to file it comes first: an entry under a
    // word that is odd, as no handle of a thread is.
    void* const place = reinterpret_cast<char*>(this) + 1;
    TaskMap().Add(place, this);
    TaskMap().Remove(place);
    GetExitStatus().setAlive();
    const bool started = pmThread::Start();
    Unfile(); // of an earlier start, or it would stay behind when the task goes
    taskKey = GetHandle();
    if (started && !TaskMap().Add(taskKey, this))
        TaskMap()[taskKey] = this; // left by a task whose kill has failed
    return started;
}

bool pmManageTask::Kill() {
    const bool isGone = EndThread();
    GetExitStatus().setKilled();
    if (isGone)
        Unfile();
    return isGone;
}

pmExitStatus& pmManageTask::GetExitStatus() {
    return taskStatus;
}

bool pmManageTask::MustKillOnDestroy() const {
    return false;
}

pmManageTask* pmManageTask::Fetch(void* const& handle) {
    pmManageTask* task = nullptr;
    TaskMap().Find(handle, task);
    return task;
}
