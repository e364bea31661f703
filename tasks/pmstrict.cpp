// SPDX-License-Identifier: MIT
#include "pmtask.h"

#include <new>

bool pmStrictTask::noFork = false;

bool pmStrictTask::Start() {
    GetExitStatus().setAlive();
    return pmThread::Start();
}

bool pmStrictTask::Kill() {
    GetExitStatus().setKilled();
    return false;
}

pmExitStatus& pmStrictTask::GetExitStatus() {
    return taskStatus;
}

void pmStrictTask::SetNoFork() {
    noFork = true;
}

bool pmStrictTask::IsNoForkSet() {
    return noFork;
}

ptkStrictTaskEvent::ptkStrictTaskEvent(pmStrictTask* watched)
    : zelEvent(new (std::nothrow) zelMOEvent(watched->GetHandle(), 2)), task(watched) {}

void* ptkStrictTaskEvent::GetProcess() {
    return task->GetHandle();
}

int ptkStrictTaskEvent::GetKind() {
    return eventKind;
}

void* ptkStrictTaskEvent::GetInfo() {
    return this;
}

ptkStrictTaskEvent* ptkStrictTaskEvent::cast(zelEvent* event) {
    return event->GetKind() == eventKind ? static_cast<ptkStrictTaskEvent*>(event->GetInfo())
                                         : nullptr;
}
