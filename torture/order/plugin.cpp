// SPDX-License-Identifier: MIT
//
// Something to be loaded. Its objects use of the library what waits for no thread: they are made
// and destroyed inside the loader, and so long no thread gets any further that needs the loader.
#include "torture/order/unit.h"

namespace {

void UseAllButThreads() {
    order::UseStrings();
    order::UseLocks();
    order::UseProcesses();
}

class Loaded {
public:
    Loaded() : kept("kept by a plugin"), entry("a plugin") {
        UseAllButThreads();
        order::Require(task.Start(), "a start while loading");
        order::Tell('+');
    }
    ~Loaded() {
        order::Require(pmManageTask::Fetch(task.GetHandle()) == &task, "a task that was kept");
        UseAllButThreads();
        order::Tell('-');
    }
    void Use() {
        WaitForSingleObject(task.GetHandle(), zelWaitInfinite);
        task.pmThread::GetExitStatus().setStatus(errOK); // the handle goes with the task
    }

private:
    dsUniqueString kept;
    ProfileEntry entry;
    order::Managed task;
};

Loaded loaded;

} // namespace

extern "C" ZEL_EXPORT void UsePlugin(bool alsoKill);
void UsePlugin(bool alsoKill) {
    loaded.Use();
    order::UseEverything(alsoKill);
}
