// SPDX-License-Identifier: MIT
#include "pmtask.h"

#include <functional>
#include <memory>
#include <vector>

#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/wait.h>

#include "outside/win32/handles.h"
#include "outside/win32/threads.h"
#include "tests/tasks.h"
#include "tests/weather.h"

// The one holds signals back until the next call, the other has the heap and lies in the program.
#if defined(__SANITIZE_THREAD__)
constexpr bool signalsInterruptLoops = false;
#else
constexpr bool signalsInterruptLoops = true;
#endif
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool allocatorIsTheSystems = false;
#elif defined(__has_feature)
constexpr bool allocatorIsTheSystems = !__has_feature(address_sanitizer);
#else
constexpr bool allocatorIsTheSystems = true;
#endif

using namespace tasks;

namespace {

std::atomic<int> entered, unwound, threadLocalsGone;

struct CountsItsEnd {
    std::atomic<int>& count;
    ~CountsItsEnd() { ++count; }
};

void Spin() {
    static volatile bool never = false;
    while (!never)
        ;
}

class Threads : public support::WeatherTest {};

INSTANTIATE_TEST_SUITE_P(Weather, Threads, support::allWeathers, support::NameOf);

TEST(Record, SetsItsFieldsAsOneAndReadsAliveBeforeTheStart) {
    Task task(nullptr);
    pmExitStatus& record = task.GetExitStatus();
    const auto reads = [&](bool alive, bool killed, errstatus status, long code) {
        return record.IsAlive() == alive && record.IsKilled() == killed &&
               record.GetExitCode() == status && record.ExitCode() == code;
    };
    EXPECT_TRUE(reads(true, false, errNone, -1));
    record.setStatus(errOK);
    record.setExitCode(5);
    EXPECT_TRUE(reads(false, false, errOK, 5));
    record.setKilled();
    EXPECT_TRUE(reads(false, true, errNone, 0));
    record.setStatus(errFailed);
    EXPECT_TRUE(reads(false, false, errFailed, 0));
    record.setAlive();
    EXPECT_TRUE(reads(true, false, errNone, -1));
    EXPECT_FALSE(task.Kill()); // never started
    EXPECT_TRUE(reads(false, true, errNone, 0));

    Task unstarted(nullptr);
    WithHopelessStacks([&] { EXPECT_FALSE(unstarted.Start()); });
    EXPECT_FALSE(unstarted.GetExitStatus().IsAlive());
    EXPECT_EQ(errThreadStart, unstarted.GetExitStatus().GetExitCode());
    EXPECT_EQ(badThreadHandle, unstarted.GetHandle());
}

TEST_P(Threads, KillStopsAtOnceWhereverTheThreadIs) {
    struct Place {
        const char* name;
        std::function<void()> body;
        bool isBlocked;
    };
    const long threadsBefore = support::Count("task");
    proSimpleSem empty(1);
    empty.Decrement();
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    char byte = 0;
    const Place places[] = {
        {"a busy loop", Spin, false},
        {"a read", [&] { EXPECT_EQ(0, read(ends[0], &byte, 1)); }, true},
        {"a sleep", [] { sleep(1000); }, true},
        {"a semaphore", [&] { empty.Decrement(); }, true},
        {"nothrow code that catches all",
         []() noexcept {
             const CountsItsEnd frame{unwound};
             try {
                 for (;;)
                     sleep(1000);
             } catch (...) {
             }
         },
         true},
    };
    for (const Place& place : places) {
        if (!place.isBlocked && !signalsInterruptLoops)
            continue;
        for (int i = 0; i < 20; ++i) {
            SCOPED_TRACE(place.name);
            const int before = entered;
            Task task([&] {
                thread_local const CountsItsEnd local{threadLocalsGone};
                static_cast<void>(&local);
                ++entered;
                place.body();
                return 0U;
            });
            // A starter that blocks every signal has threads that can be stopped all the same.
            sigset_t all, former;
            sigfillset(&all);
            pthread_sigmask(SIG_BLOCK, &all, &former);
            ASSERT_TRUE(task.Start());
            pthread_sigmask(SIG_SETMASK, &former, nullptr);
            const bool isUnderWay = i % 2 == 0;
            while (isUnderWay && entered == before)
                std::this_thread::yield();
            const int localsBefore = threadLocalsGone;
            EXPECT_TRUE(task.Kill());
            EXPECT_TRUE(task.GetExitStatus().IsKilled());
            EXPECT_EQ(badThreadHandle, task.GetHandle());
            EXPECT_EQ(isUnderWay ? 1 : entered - before, threadLocalsGone - localsBefore);
        }
    }
    EXPECT_EQ(0, unwound);
    EXPECT_EQ(threadsBefore, support::Count("task"));
}

TEST(Kill, GivesUpOnAThreadThatCannotBeReachedAndLeavesItAlone) {
    std::atomic<bool> over{false};
    const auto body = [&] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        for (++entered; !over; std::this_thread::yield())
            ;
        pthread_sigmask(SIG_UNBLOCK, &all, nullptr); // the signal of the Kill that gave up is late
        return 7U;
    };
    Task deaf(body);
    ASSERT_TRUE(deaf.Start());
    EndOf end(deaf.GetHandle());
    ASSERT_TRUE(Eventually([] { return entered == 1; }));
    EXPECT_FALSE(deaf.Kill());
    EXPECT_TRUE(deaf.GetExitStatus().IsKilled());
    EXPECT_FALSE(end.IsSignaled());
    over = true;
    EXPECT_TRUE(end.Wait(-1));

    over = false;
    struct sigaction own {
    }, now{};
    own.sa_handler = [](int) { abort(); };
    sigaction(zelTerminateSignal(), &own, nullptr);
    Task task(body);
    ASSERT_TRUE(task.Start());
    EndOf taskEnd(task.GetHandle());
    EXPECT_FALSE(task.Kill());
    sigaction(zelTerminateSignal(), nullptr, &now);
    EXPECT_EQ(own.sa_handler, now.sa_handler);
    over = true;
    EXPECT_TRUE(taskEnd.Wait(-1));
}

TEST_P(Threads, KillInsideTheAllocatorLeavesItUsable) {
    if (!allocatorIsTheSystems)
        GTEST_SKIP() << "a sanitizer has the heap";
    for (int i = 0; i < 300; ++i) {
        const int before = entered;
        Task task([&] {
            unsigned int size = 1;
            for (++entered;; size = size * 1664525 + 1013904223)
                delete[] new char[2000 + (size >> 20)];
            return 0U;
        });
        ASSERT_TRUE(task.Start());
        while (entered == before)
            std::this_thread::yield();
        ASSERT_TRUE(task.Kill());
    }
    const pid_t copy = fork(); // wants every lock of the allocator
    if (copy == 0)
        _exit(std::make_unique<char[]>(100000) == nullptr);
    int status = -1;
    while (waitpid(copy, &status, 0) != copy)
        ASSERT_EQ(EINTR, errno);
    EXPECT_EQ(0, status);
}

TEST_P(Threads, TenThousandEndedKilledOrNeverClosedLeaveNothing) {
    std::vector<void*> neverClosed;
    const auto round = [&](int count) {
        for (int i = 0; i < count; ++i) {
            const bool isToKill = i % 4 == 0;
            Task task([isToKill] {
                while (isToKill)
                    pause();
                return 0U;
            });
            ASSERT_TRUE(task.Start());
            EndOf end(task.GetHandle());
            ASSERT_GE(end.GetDescriptor(), 0);
            if (isToKill)
                ASSERT_TRUE(task.Kill());
            else
                neverClosed.push_back(task.GetHandle());
            ASSERT_TRUE(end.Wait(-1));
        }
    };
    const auto settled = [](long tasks) {
        return Eventually([=] { return support::Count("task") == tasks; });
    };
    const long tasks = support::Count("task");
    neverClosed.reserve(20000);
    round(200);
    ASSERT_TRUE(settled(tasks));
    const long descriptors = support::OpenDescriptors();
    const long mappings = support::Count("map_files");
    round(10000);
    EXPECT_TRUE(settled(tasks));
    EXPECT_TRUE(Eventually([=] { return support::OpenDescriptors() == descriptors; }));
    EXPECT_LE(support::Count("map_files"), mappings + 60); // arenas of the allocator
    for (void* handle : neverClosed)
        EXPECT_TRUE(CloseHandle(handle)); // or a leak checker finds them
}

TEST_P(Threads, EventsOutliveHandlesAndGoWithoutATrace) {
    std::atomic<bool> over{false};
    const auto body = [&] {
        while (!over)
            std::this_thread::yield();
        return 0U;
    };
    Task first(body), second(body), third([] { return 0U; });
    for (Task* task : {&first, &second, &third})
        ASSERT_TRUE(task->Start());
    auto abandoned = std::make_unique<EndOf>(first.GetHandle());
    EndOf one(first.GetHandle()), other(second.GetHandle()), ended(third.GetHandle());
    zelEvent* const events[] = {&one, nullptr, &other, &ended};
    EXPECT_EQ(3, zelEvent::WaitAny(events, 4, -1));
    EXPECT_EQ(-1, zelEvent::WaitAny(events, 3, 10));
    EXPECT_EQ(abandoned->GetDescriptor(), one.GetDescriptor());
    abandoned.reset();
    const int number = other.GetDescriptor();
    auto gone = std::make_unique<EndOf>(second.GetHandle());
    over = true;
    EXPECT_TRUE(one.Wait(-1) && other.Wait(-1) && gone->Wait(-1));
    for (Task* task : {&first, &second, &third})
        EXPECT_TRUE(task->Kill()); // gone is gone
    EXPECT_TRUE(one.IsSignaled() && other.IsSignaled() && number == other.GetDescriptor());

    // A number that was given back and used again is never written to, however late the end is.
    for (int i = 0; i < 300; ++i) {
        std::atomic<bool> go{false};
        Task task([&] {
            while (!go)
                ;
            return 0U;
        });
        ASSERT_TRUE(task.Start());
        auto event = std::make_unique<EndOf>(task.GetHandle());
        const int used = event->GetDescriptor();
        go = true;
        for (int turns = i % 100; turns > 0; --turns)
            static_cast<void>(GetTaskSelfHandle());
        event.reset();
        const int newcomer = eventfd(0, EFD_NONBLOCK);
        EXPECT_EQ(zelWaitSignaled, WaitForSingleObject(task.GetHandle(), zelWaitInfinite));
        std::uint64_t count = 0;
        EXPECT_EQ(-1, read(newcomer, &count, sizeof count)) << used << " is now " << newcomer;
        close(newcomer);
        task.Kill();
    }
}

TEST_P(Threads, KillersMayMeetEachOtherAndTheEnd) {
    for (int i = 0; i < 500; ++i) {
        std::atomic<int> turns{i * 7};
        Task target([&] {
            while (--turns > 0 || i % 3 == 0)
                usleep(i % 2 == 0 ? 0 : 1);
            return 0U;
        });
        ASSERT_TRUE(target.Start());
        void* const handle = target.GetHandle();
        EndOf end(handle);
        std::atomic<int> stopped{0};
        std::thread rival([&] { stopped += TerminateThread(handle, 3); });
        stopped += TerminateThread(handle, 2);
        rival.join();
        EXPECT_EQ(2, stopped);
        EXPECT_TRUE(end.Wait(-1));
        EXPECT_TRUE(target.Kill());
    }
    // Two that stop each other: one at least is gone, and no stop waits for ever.
    Task* tasks[2] = {};
    std::atomic<int> ready{0};
    const auto stops = [&](int other) {
        for (++ready; ready < 3;)
            std::this_thread::yield();
        static_cast<void>(TerminateThread(tasks[other]->GetHandle(), 2));
        return 0U;
    };
    Task one([&] { return stops(1); }), two([&] { return stops(0); });
    tasks[0] = &one;
    tasks[1] = &two;
    ASSERT_TRUE(one.Start() && two.Start());
    EndOf ends[] = {EndOf(one.GetHandle()), EndOf(two.GetHandle())};
    ++ready;
    EXPECT_TRUE(ends[0].Wait(-1) && ends[1].Wait(-1));
    EXPECT_TRUE(one.Kill() && two.Kill());
}

TEST(Self, IsKnownToEachThread) {
    void* self = nullptr;
    unsigned long id = 0;
    Task task([&] {
        self = GetTaskSelfHandle();
        id = GetCurrentThreadId();
        return 0U;
    });
    ASSERT_TRUE(task.Start());
    EXPECT_EQ(zelWaitSignaled, WaitForSingleObject(task.GetHandle(), zelWaitInfinite));
    EXPECT_EQ(task.GetHandle(), self);
    EXPECT_NE(GetCurrentThreadId(), id);
    EXPECT_FALSE(TerminateThread(GetTaskSelfHandle(), 2)); // of a thread that was not started here
    EXPECT_EQ(zelWaitFailed, WaitForSingleObject(GetTaskSelfHandle(), 0));
    task.Kill();

    unsigned int told = 0;
    std::atomic<unsigned long> own{0};
    const auto entry = [](void* place) {
        *static_cast<std::atomic<unsigned long>*>(place) = GetCurrentThreadId();
        return TerminateThread(GetCurrentThread(), 4) ? 1U : 0U; // does not come back
    };
    void* const thread = _beginthreadex(nullptr, 65536, entry, &own, 0, &told);
    EXPECT_EQ(zelWaitSignaled, WaitForSingleObject(thread, zelWaitInfinite));
    EXPECT_EQ(own, told);
    EXPECT_TRUE(CloseHandle(thread));
}

} // namespace
