// SPDX-License-Identifier: MIT
#include "asynccall.h"

#include <memory>

#include <poll.h>

#include "outside/win32/handles.h"
#include "tests/loopback.h"
#include "tests/piped.h"
#include "tests/tasks.h"

using namespace tasks;

namespace {

using Call = std::unique_ptr<ptkAsyncCallEvent>;

/// Holds functions up until they may go on.
struct Gate {
    proSimpleSem closed{1};
    int result;

    explicit Gate(int returned) : result(returned) { closed.Decrement(); }
    static int Pass(void* gate) {
        static_cast<Gate*>(gate)->closed.Decrement();
        return static_cast<Gate*>(gate)->result;
    }
};

class Calls : public Weather {};

INSTANTIATE_TEST_SUITE_P(Weather, Calls, testing::Bool(), NameOf);

TEST_P(Calls, TellTheResultFromTheEndOnAsOftenAsAsked) {
    for (const int result : {7, 0, -1}) {
        Gate gate(result);
        const Call call(call_async_func(&Gate::Pass, &gate));
        ASSERT_TRUE(call);
        EXPECT_EQ(-1, call->GetReturnValue());
        EXPECT_TRUE(result == 7 || !call->IsSignaled());
        gate.closed.Increment();
        EXPECT_TRUE(result != 7 || // polling alone sees it too
                    Eventually([&] { return call->GetReturnValue() == 7; }));
        EXPECT_TRUE(call->Wait(-1));
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(result, call->GetReturnValue());
            EXPECT_TRUE(call->IsSignaled()); // also when the record is gone
        }
    }
    Gate gate(1);
    WithHopelessStacks([&] { EXPECT_EQ(nullptr, call_async_func(&Gate::Pass, &gate)); });
}

TEST_P(Calls, MayBeForgottenAtAnyTime) {
    static std::atomic<int> returned;
    returned = 0;
    for (int i = 0; i < 3000; ++i) {
        const Call call(call_async_func([](void*) { return ++returned; }, nullptr));
        ASSERT_TRUE(call);
        EXPECT_TRUE(i % 3 != 1 || call->GetDescriptor() >= 0);
        EXPECT_TRUE(i % 3 != 2 || call->Wait(-1)); // and nobody asks for the result
    }
    EXPECT_TRUE(Eventually([&] { return returned == 3000; }));
}

TEST(Call, NeedsNoDescriptorUntilSomebodyWaits) {
    const support::DescriptorLimit few(37);
    Gate gate(5);
    std::vector<Call> calls(60);
    for (Call& call : calls)
        call.reset(call_async_func(&Gate::Pass, &gate));
    long withDescriptor = 0;
    for (const Call& call : calls)
        withDescriptor += call->GetDescriptor() >= 0;
    EXPECT_TRUE(withDescriptor > 0 && withDescriptor < 40);
    EXPECT_FALSE(calls.back()->Wait(0));
    for (int i = 0; i < 60; ++i)
        while (!gate.closed.Increment())
            std::this_thread::yield();
    EXPECT_TRUE(Eventually([&] { return calls.back()->GetReturnValue() == 5; }));
    for (const Call& call : calls)
        EXPECT_TRUE(call->Wait(-1));
}

TEST_P(Calls, AreWaitedForBesideAllElseInALoopOfOnesOwn) {
    struct Strict : pmStrictTask {
        Gate gate{0};
        unsigned int ThreadRun() override { return static_cast<unsigned int>(Gate::Pass(&gate)); }
    } strict;
    EXPECT_FALSE(strict.GetExitStatus().IsAlive());
    ASSERT_TRUE(strict.Start());
    EXPECT_TRUE(strict.GetExitStatus().IsAlive());
    EXPECT_FALSE(strict.Kill());
    EXPECT_TRUE(strict.GetExitStatus().IsKilled());
    Gate gate(1);
    const Call call(call_async_func(&Gate::Pass, &gate));
    Piped child("cat"), ending("cat");
    loopback::Pair sockets;
    ASSERT_TRUE(child.status == errOK && ending.status == errOK && sockets.server);
    ptkStrictTaskEvent thread(&strict);
    const std::unique_ptr<zelEvent> pipe(child.out->GetReadEvent());
    const std::unique_ptr<zelEvent> end(ending.process.GetExitEvent());
    zelSocketEvent socket(sockets.client.get(), zelSelectEvent::Readable);
    zelEvent* const events[] = {&thread, call.get(), pipe.get(), end.get(), &socket};
    for (zelEvent* event : events) {
        EXPECT_EQ(event == &thread ? &thread : nullptr, ptkStrictTaskEvent::cast(event));
        EXPECT_EQ(event == call.get() ? call.get() : nullptr, ptkAsyncCallEvent::cast(event));
    }
    int kind = pipe->GetKind();
    for (const int i : {2, 3, 1, 0, 4}) // as they are made when the library is loaded
        EXPECT_EQ(kind++, events[i]->GetKind());
    pollfd set[5] = {};
    for (int i = 0; i < 5; ++i)
        set[i] = {events[i]->GetDescriptor(), POLLIN, 0};
    EXPECT_EQ(-1, zelEvent::WaitAny(events, 5, 5));
    const std::function<void()> causes[] = {
        [&] { strict.gate.closed.Increment(); }, [&] { gate.closed.Increment(); },
        [&] { *child.in << 'x' << std::flush; }, [&] { ending.CloseInput(); },
        [&] { sockets.server->Write("x", 1, false); }};
    for (int i = 4; i >= 0; --i) {
        causes[i]();
        while (poll(set, 5, -1) != 1)
            ASSERT_EQ(EINTR, errno);
        EXPECT_NE(0, set[i].revents) << i;
        EXPECT_EQ(i, zelEvent::WaitAny(events, 5, -1));
        set[i].fd = -1;
    }
    child.CloseInput();
    EXPECT_EQ(0, child.process.WaitForProcess() + ending.process.WaitForProcess());
    EXPECT_TRUE(CloseHandle(thread.GetProcess())); // the task leaves it open in any case
}

} // namespace
