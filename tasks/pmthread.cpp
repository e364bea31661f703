// SPDX-License-Identifier: MIT
#include "pmtask.h"

#include "outside/win32/threads.h"

constinit void* badThreadHandle = nullptr;
constinit int badProcHandle = 0;

void pmExitStatus::setAlive() {
    alive = true;
    killed = false;
    status = errNone;
    exitCode = -1;
}

void pmExitStatus::setKilled() {
    alive = false;
    killed = true;
    status = errNone;
    exitCode = 0;
}

void pmExitStatus::setStatus(errstatus newStatus) {
    alive = false;
    killed = false;
    status = newStatus;
}

void pmExitStatus::setExitCode(long newCode) {
    alive = false;
    killed = false;
    exitCode = newCode;
}

pmTask::~pmTask() = default;

void pmTask::OnSuccessfullStart() {}

void pmTask::OnFailedStart() {}

bool pmTask::Unlocked(bool) {
    return true;
}

void* GetTaskSelfHandle() {
    return GetCurrentThread();
}

pmThread::pmThread() : handle(badThreadHandle) {
    exitStatus.SetThreadHandle(handle);
    exitStatus.setAlive();
}

pmThread::~pmThread() {
    if (!exitStatus.IsAlive() && handle != badThreadHandle)
        CloseHandle(handle);
}

unsigned int pmThread::ThreadStarter(void* task) {
    return static_cast<pmThread*>(task)->ThreadRun();
}

bool pmThread::Start() {
    handle = _beginthreadex(nullptr, 0, &pmThread::ThreadStarter, this, 0, nullptr);
    if (handle == badThreadHandle) {
        GetExitStatus().setStatus(errThreadStart);
        return false;
    }
    return true;
}

bool pmThread::EndThread() {
    constexpr unsigned int killedCode = 2;
    const bool isGone = TerminateThread(handle, killedCode);
    CloseHandle(handle);
    handle = badThreadHandle;
    return isGone;
}

bool pmThread::Kill() {
    const bool isGone = EndThread();
    GetExitStatus().setKilled();
    return isGone;
}

pmExitStatus& pmThread::GetExitStatus() {
    return exitStatus;
}
