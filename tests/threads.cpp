// SPDX-License-Identifier: MIT
#include "pmtask.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <memory>

#include <sys/eventfd.h>
#include <sys/wait.h>

#include "outside/win32/handles.h"
#include "outside/win32/threads.h"
#include "pipestream.h"
#include "tests/tasks.h"

// A sanitizer has the heap, and lies in the program.
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

class Kills : public Weather {};

INSTANTIATE_TEST_SUITE_P(Weather, Kills, testing::Bool(), NameOf);

TEST(Record, SetsItsFieldsAsOneAndReadsAliveBeforeTheStart) {
    Task task(nullptr), unstarted(nullptr);
    pmExitStatus& record = task.GetExitStatus();
    const auto reads = [&](bool alive, bool killed, errstatus status, long code) {
        return record.IsAlive() == alive && record.IsKilled() == killed &&
               record.GetExitCode() == status && record.ExitCode() == code;
    };
    EXPECT_TRUE(reads(true, false, errNone, -1));
    record.setStatus(errOK);
    record.setExitCode(5);
    EXPECT_TRUE(reads(false, false, errOK, 5));
    EXPECT_FALSE(task.Kill()); // never started
    EXPECT_TRUE(reads(false, true, errNone, 0));
    record.setStatus(errFailed);
    EXPECT_TRUE(reads(false, false, errFailed, 0));
    record.setAlive();
    EXPECT_TRUE(reads(true, false, errNone, -1));

    WithHopelessStacks([&] { EXPECT_FALSE(unstarted.Start()); });
    EXPECT_FALSE(unstarted.GetExitStatus().IsAlive());
    EXPECT_EQ(errThreadStart, unstarted.GetExitStatus().GetExitCode());
    EXPECT_EQ(badThreadHandle, unstarted.GetHandle());
}

TEST_P(Kills, StopAtOnceWhereverTheThreadIs) {
    int ends[2];
    oPipeStream* full = nullptr;
    iPipeStream* unread = nullptr;
    ASSERT_TRUE(pipe(ends) == 0 && CreatePipeSt(&full, &unread) == errOK);
    volatile bool never = false;
    const std::function<void()> places[] = {
        [&] {
            while (signalsInterruptLoops && !never)
                ;
            for (;;)
                pause();
        },
        [&] {
            while (read(ends[0], ends, 1) == -1)
                ;
        },
        []() noexcept {
            const CountsItsEnd frame{unwound};
            try {
                for (;;)
                    sleep(1000);
            } catch (...) {
            }
        },
        [&] {
            while (!signalsInterruptLoops) // nor a write with a signal blocked
                pause();
            static const std::string much(1 << 20, 'x');
            EXPECT_EQ(0, full->rdbuf()->sputn(much.data(), 1 << 20));
        },
    };
    std::map<int, long long> quickest;
    for (int i = 0; i < 160; ++i) {
        const int before = entered, localsBefore = threadLocalsGone;
        std::atomic<pid_t> id{0};
        Task task([&] {
            thread_local const CountsItsEnd local{threadLocalsGone};
            static_cast<void>(&local);
            ++entered;
            id = gettid();
            places[i % 4]();
            return 0U;
        });
        // A starter that blocks every signal has threads that can be stopped all the same.
        sigset_t all, former;
        sigfillset(&all);
        pthread_sigmask(i % 16 < 8 ? SIG_BLOCK : SIG_UNBLOCK, &all, &former);
        ASSERT_TRUE(task.Start());
        pthread_sigmask(SIG_SETMASK, &former, nullptr);
        const bool isThere = i % 8 < 4; // the others are stopped as early as can be
        EXPECT_TRUE(!isThere || Eventually([&] { return id != 0 && (i % 4 == 0 || Sleeps(id)); }));
        const auto took = support::MillisecondsOf([&] { EXPECT_TRUE(task.Kill()) << i % 4; });
        if (isThere)
            quickest[i % 16] = std::min(quickest.emplace(i % 16, took).first->second, took);
        EXPECT_TRUE(task.GetExitStatus().IsKilled());
        EXPECT_EQ(badThreadHandle, task.GetHandle());
        EXPECT_LE(entered - before, threadLocalsGone - localsBefore);
    }
    for (const auto& [place, milliseconds] : quickest)
        EXPECT_LT(milliseconds, 10) << place;
    DeletePipe(full);
    DeletePipe(unread);
    for (const int one : ends)
        close(one);
    EXPECT_EQ(0, unwound);
}

TEST(Kill, GivesUpOnAThreadThatCannotBeReachedAndLeavesItAlone) {
    struct sigaction own {};
    own.sa_handler = [](int) { abort(); };
    sigset_t all;
    sigfillset(&all);
    for (const bool isTaken : {false, true}) {
        if (isTaken)
            sigaction(zelTerminateSignal(), &own, nullptr);
        std::atomic<bool> over{false};
        const int before = entered;
        Task deaf([&] {
            pthread_sigmask(isTaken ? SIG_UNBLOCK : SIG_BLOCK, &all, nullptr);
            for (++entered; !over; std::this_thread::yield())
                ;
            pthread_sigmask(SIG_UNBLOCK, &all, nullptr); // the signal comes now: too late
            return 0U;
        });
        ASSERT_TRUE(deaf.Start());
        EndOf end(deaf.GetHandle());
        ASSERT_TRUE(Eventually([&] { return entered != before; }));
        EXPECT_FALSE(deaf.Kill());
        EXPECT_TRUE(deaf.GetExitStatus().IsKilled());
        EXPECT_FALSE(end.IsSignaled());
        over = true;
        EXPECT_TRUE(end.Wait(-1));
    }
    EXPECT_EQ(own.sa_handler, signal(zelTerminateSignal(), SIG_DFL));
}

/// Waits for ever for somebody else.
struct HangsInItsEnd {
    ~HangsInItsEnd() {
        for (++entered;;)
            pause();
    }
};

TEST(Kill, OfAThreadThatHangsInItsOwnEndTakesItAwayWithoutAnotherStep) {
    if (!allocatorIsTheSystems)
        GTEST_SKIP() << "a sanitizer wants to see each thread end";
    const long threads = Threads();
    const int before = entered;
    Task task([] {
        [[maybe_unused]] static thread_local HangsInItsEnd object;
        [[maybe_unused]] volatile const auto* const used = &object;
        for (++entered;;)
            pause();
        return 0U;
    });
    ASSERT_TRUE(task.Start());
    EndOf end(task.GetHandle());
    ASSERT_TRUE(Eventually([&] { return entered != before; }));
    EXPECT_TRUE(task.Kill());
    EXPECT_TRUE(end.Wait(-1));
    EXPECT_EQ(before + 2, entered);
    EXPECT_EQ(threads, Threads());
}

TEST_P(Kills, InsideTheAllocatorLeaveItUsable) {
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

TEST_P(Kills, AndEndsAndForgottenHandlesLeaveNothingBehind) {
    std::vector<void*> neverClosed;
    const auto round = [&](int count) {
        for (int i = 0; i < count; ++i) {
            Task task([i] {
                if (i % 4 == 0)
                    for (;;)
                        pause();
                return 0U;
            });
            ASSERT_TRUE(task.Start());
            EndOf end(task.GetHandle());
            ASSERT_GE(end.GetDescriptor(), 0);
            if (i % 4 != 0)
                neverClosed.push_back(task.GetHandle());
            ASSERT_TRUE(i % 4 != 0 || task.Kill());
            ASSERT_TRUE(end.Wait(-1));
        }
    };
    const auto mappings = [] {
        std::ifstream file("/proc/self/maps");
        return std::count(std::istreambuf_iterator<char>(file), {}, '\n');
    };
    const auto resident = [] { // bytes
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages >> pages;
        return pages * sysconf(_SC_PAGESIZE);
    };
    const long threads = Threads();
    round(200);
    ASSERT_TRUE(Eventually([=] { return Threads() == threads; }));
    const long descriptors = support::OpenDescriptors();
    const auto mapped = mappings();
    const auto kept = resident();
    round(10000);
    EXPECT_TRUE(Eventually([=] { return Threads() == threads; }));
    EXPECT_TRUE(Eventually([=] { return support::OpenDescriptors() <= descriptors; }));
    EXPECT_LE(mappings(), mapped + 500); // what the allocator, or a sanitizer, keeps
    EXPECT_TRUE(!allocatorIsTheSystems || resident() - kept < 4 << 20) << resident() - kept;
    for (void* handle : neverClosed)
        EXPECT_TRUE(CloseHandle(handle)); // or a leak checker finds them
}

TEST_P(Kills, AndEventsMayComeInAnyOrder) {
    std::atomic<bool> over{false};
    const auto body = [&] {
        while (!over)
            std::this_thread::yield();
        return 0U;
    };
    Task first(body), second(body), third([] { return 0U; });
    ASSERT_TRUE(first.Start() && second.Start() && third.Start());
    EndOf one(first.GetHandle()), other(second.GetHandle()), ended(third.GetHandle());
    zelEvent* const events[] = {&one, nullptr, &other, &ended};
    EXPECT_EQ(3, zelEvent::WaitAny(events, 4, -1));
    EXPECT_EQ(-1, zelEvent::WaitAny(events, 3, 10));
    EXPECT_EQ(one.GetDescriptor(), EndOf(first.GetHandle()).GetDescriptor());
    over = true;
    EXPECT_TRUE(one.Wait(-1) && other.Wait(-1));
    EXPECT_TRUE(first.Kill() && second.Kill() && third.Kill()); // gone is gone
    EXPECT_TRUE(one.IsSignaled() && other.IsSignaled());

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
        EXPECT_GE(event->GetDescriptor(), 0);
        go = true;
        for (int turns = i % 100; turns > 0; --turns)
            static_cast<void>(GetTaskSelfHandle());
        event.reset();
        const int newcomer = eventfd(0, EFD_NONBLOCK);
        EXPECT_EQ(zelWaitSignaled, WaitForSingleObject(task.GetHandle(), zelWaitInfinite));
        std::uint64_t count = 0;
        EXPECT_EQ(-1, read(newcomer, &count, sizeof count));
        close(newcomer);
        task.Kill();
    }
}

TEST_P(Kills, MayMeetEachOtherAndTheEnd) {
    for (int i = 0; i < 500; ++i) {
        Task target([i] {
            for (int turns = i; turns > 0 || i % 3 == 0; --turns)
                usleep(i % 2 == 0 ? 0 : 1);
            return 0U;
        });
        ASSERT_TRUE(target.Start());
        EndOf end(target.GetHandle());
        std::atomic<int> stopped{0};
        const auto stop = [&, handle = target.GetHandle()] {
            stopped += TerminateThread(handle, 3);
        };
        std::thread rival(stop);
        stop();
        rival.join();
        EXPECT_EQ(2, stopped);
        EXPECT_TRUE(end.Wait(-1));
        EXPECT_TRUE(target.Kill());
    }
    // Two that stop each other: no stop waits for ever.
    void* handles[2] = {};
    std::atomic<bool> ready{false};
    const auto stops = [&](int other) {
        while (!ready)
            std::this_thread::yield();
        return static_cast<unsigned int>(TerminateThread(handles[other], 2));
    };
    Task one([&] { return stops(1); }), two([&] { return stops(0); });
    ASSERT_TRUE(one.Start() && two.Start());
    handles[0] = one.GetHandle();
    handles[1] = two.GetHandle();
    ready = true;
    for (void* handle : handles)
        EXPECT_EQ(zelWaitSignaled, WaitForSingleObject(handle, zelWaitInfinite));
    EXPECT_TRUE(one.Kill() && two.Kill());
}

TEST(End, IsNotToldByAForkedCopy) {
    std::atomic<bool> watched{false}, forked{false}, over{false};
    Task task([&] {
        while (!watched)
            std::this_thread::yield();
        const pid_t copy = fork();
        if (copy == 0) {
            pthread_key_t last;
            pthread_key_create(&last, [](void*) { _exit(0); });
            pthread_setspecific(last, &last);
            return 0U;
        }
        EXPECT_EQ(copy, waitpid(copy, nullptr, 0));
        for (forked = true; !over; std::this_thread::yield())
            ;
        return 0U;
    });
    ASSERT_TRUE(task.Start());
    EndOf end(task.GetHandle());
    zelEvent* const events[] = {&end, nullptr};
    watched = end.GetDescriptor() >= 0;
    EXPECT_TRUE(Eventually([&] { return forked.load(); }));
    EXPECT_EQ(-1, zelEvent::WaitAny(events, 2, 0));
    over = true;
    EXPECT_EQ(0, zelEvent::WaitAny(events, 2, -1));
    EXPECT_TRUE(task.Kill());
}

TEST(Self, IsKnownToEachThreadWhichMayStopItself) {
    static std::atomic<void*> self;
    static std::atomic<unsigned long> id;
    static std::atomic<void*> afterTheEnd{nullptr};
    static pthread_key_t key;
    pthread_key_create(&key, [](void*) { afterTheEnd = GetTaskSelfHandle(); });
    const auto entry = [](void* code) {
        pthread_setspecific(key, &key);
        self = GetTaskSelfHandle();
        id = GetCurrentThreadId();
        return TerminateThread(self, *static_cast<unsigned int*>(code)) ? 1U : 0U;
    };
    unsigned int code = 4, told = 0;
    void* const thread = _beginthreadex(nullptr, 65536, entry, &code, 0, &told);
    EXPECT_EQ(zelWaitSignaled, WaitForSingleObject(thread, zelWaitInfinite));
    EXPECT_TRUE(self == thread && id == told);
    EXPECT_NE(GetCurrentThreadId(), told);
    EXPECT_TRUE(CloseHandle(thread)); // the record is gone by now
    EXPECT_TRUE(Eventually([] { return afterTheEnd == GetTaskSelfHandle(); }));
    EXPECT_FALSE(TerminateThread(GetTaskSelfHandle(), 2)); // of a thread that was not started here
    EXPECT_EQ(zelWaitFailed, WaitForSingleObject(GetTaskSelfHandle(), 0));
}

} // namespace
