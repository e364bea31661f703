// SPDX-License-Identifier: MIT
//
// order_leave WAY: ends while threads of the library run, each in something else: WAY is "return",
// "exit", "quick" (quick_exit), "thread" (exit on one of those threads) or "signal".
#include <csignal>

#include <outside/varnholt/threads.h>
#include <psock.h>

#include "tests/support.h"
#include "torture/order/unit.h"

namespace {

std::atomic<int> running{0};
std::atomic<bool> leaveNow{false};

/// Starts tasks, calls, locks and waits, without end.
// Whatever a thread uses outlives it: nothing here is ever destroyed.

struct Busy : pmThread {
    unsigned int ThreadRun() override {
        for (bool told = false;; told = true) {
            order::UseLocks();
            order::Strict strict;
            if (strict.Start())
                ptkStrictTaskEvent(&strict).Wait(-1);
            strict.pmThread::GetExitStatus().setStatus(errOK); // the handle goes with the task
            int number = 1;
            if (const std::unique_ptr<ptkAsyncCallEvent> call{
                    call_async_func(order::Twice, &number)})
                call->Wait(-1);
            if (!told)
                ++running;
        }
    }
};

/// Waits for what never comes.
int Wait(void* what) {
    ++running;
    return static_cast<zelEvent*>(what)->Wait(-1) ? 1 : 0;
}

/// Kills one thread after the other.
struct Killer : pmThread {
    unsigned int ThreadRun() override {
        for (bool told = false;; told = true) {
            order::Blocked blocked;
            order::Require(blocked.Start() && blocked.Kill(), "a kill while the program ends");
            if (!told)
                ++running;
        }
    }
};

struct Leaver : pmThread {
    unsigned int ThreadRun() override {
        ++running;
        while (!leaveNow)
            usleep(100);
        std::exit(0);
    }
};

} // namespace

int main(int argc, char** argv) {
    const std::string way = argc > 1 ? argv[1] : "return";
    // A child that ends with this program, watched by a thread since there is no descriptor for it.
    static iPipeStream* fromHere = nullptr;
    static oPipeStream* toChild = nullptr;
    order::Require(CreatePipeSt(&toChild, &fromHere) == errOK, "a pipe");
    static ExecProcess& child = *new ExecProcess("cat", 1);
    child.AssignCin(iAssignableStream(*fromHere));
    support::FailCall(SYS_pidfd_open, ENOSYS);
    order::Require(child.Start(), "a child");
    DeletePipe(fromHere);
    static zelEvent* const end = child.GetExitEvent();
    order::Require(end->GetDescriptor() != -1 && !end->Wait(0), "the child's event");

    static Busy& busy = *new Busy;
    static Killer& killer = *new Killer;
    static Leaver& leaver = *new Leaver;
    order::Require(busy.Start() && killer.Start() && leaver.Start(), "the threads");
    static zelEvent* const other = child.GetExitEvent();
    static zelEvent* const waiting = call_async_func(Wait, other);
    order::Require(waiting != nullptr, "a call");
    while (running < 4)
        usleep(100);
    order::Tell('m');
    if (way == "exit")
        std::exit(0);
    if (way == "quick")
        std::quick_exit(0);
    if (way == "signal")
        std::raise(SIGTERM);
    if (way == "thread") {
        leaveNow = true;
        for (;;)
            pause();
    }
    return 0;
}
