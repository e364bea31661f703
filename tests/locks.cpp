// SPDX-License-Identifier: MIT
#include "prolock.h"

#include <memory>

#include "outside/varnholt/process.h"
#include "outside/win32/threads.h"
#include "tests/tasks.h"

using namespace tasks;

namespace {

class Locks : public Weather {};

INSTANTIATE_TEST_SUITE_P(Weather, Locks, testing::Bool(), NameOf);

TEST(Mutex, CountsItsOwnerAndRefusesAllOthers) {
    alignas(proMutex) char zero[sizeof(proMutex)] = {};
    proMutex& mutex = *reinterpret_cast<proMutex*>(zero);
    EXPECT_FALSE(mutex.Lock() || mutex.TryLock() || mutex.Unlock());
    EXPECT_TRUE(mutex.Initialize());
    const auto othersTry = [&] {
        bool owned = false;
        std::thread([&] { owned = mutex.TryLock() && mutex.Unlock(); }).join();
        return owned;
    };
    for (const auto first : {&proMutex::Lock, &proMutex::TryLock}) {
        EXPECT_TRUE(othersTry());
        EXPECT_TRUE((mutex.*first)() && mutex.TryLock() && mutex.Lock());
        for (int holds = 3; holds > 0; --holds) {
            EXPECT_FALSE(othersTry());
            std::thread([&] { EXPECT_FALSE(mutex.Unlock()); }).join();
            EXPECT_TRUE(mutex.Unlock());
        }
        EXPECT_FALSE(mutex.Unlock());
    }
    mutex.~proMutex();
    EXPECT_FALSE(mutex.Lock() || mutex.TryLock() || mutex.Unlock());
}

TEST_P(Locks, WaitersSleepAndOneKilledAtItIsCountedForEver) {
    proMutex mutex;
    proSimpleSem semaphore(1);
    ASSERT_TRUE(mutex.Lock() && semaphore.Decrement());
    for (const bool atMutex : {true, false}) {
        std::atomic<pid_t> waiting{0};
        Task waiter([&] {
            waiting = gettid();
            return (atMutex ? mutex.Lock() : semaphore.Decrement()) ? 1U : 0U;
        });
        ASSERT_TRUE(waiter.Start());
        EXPECT_TRUE(Eventually([&] { return waiting != 0 && Sleeps(waiting); }));
        EXPECT_TRUE(waiter.Kill());
    }
    EXPECT_TRUE(mutex.Unlock() && semaphore.Increment());
    EXPECT_FALSE(mutex.TryLock()); // gives way to the dead, while Lock does not
    EXPECT_TRUE(mutex.Lock() && mutex.Unlock() && semaphore.Decrement());
}

TEST(Mutex, OfADeadOwnerIsNobodyElses) {
    proMutex mutex;
    std::atomic<pid_t> number{0};
    Task owner([&] {
        for (mutex.Lock();; number = gettid())
            usleep(1000);
        return 0U;
    });
    ASSERT_TRUE(owner.Start() && Eventually([&] { return number != 0; }) && owner.Kill());
    bool met = false;
    for (int i = 0; i < 200 && !met; ++i) {
        std::ofstream("/proc/sys/kernel/ns_last_pid") << number - 1;
        std::thread([&] {
            met = gettid() == number;
            EXPECT_FALSE(mutex.TryLock());
        }).join();
    }
    if (!met)
        GTEST_SKIP() << "the number of the next thread cannot be chosen here";
}

TEST_P(Locks, OfTheLibrarysOwnDoNotGoWithAKilledThread) {
    if (GetParam() && !signalsInterruptLoops)
        GTEST_SKIP() << "the thread sanitizer may leave a thread with all signals blocked";
    proMutex mutex;
    ASSERT_TRUE(mutex.Lock());
    const std::function<void()> calls[] = {
        [&] { EXPECT_FALSE(mutex.TryLock()); },
        [] { EXPECT_FALSE(Process_Interrupt(0)); },
    };
    for (int i = 0; i < 400; ++i) {
        std::atomic<bool> runs{false};
        Task task([&] {
            for (;; runs = true)
                calls[i % 2]();
            return 0U;
        });
        ASSERT_TRUE(task.Start());
        while (!runs)
            std::this_thread::yield();
        EXPECT_TRUE(task.Kill());
        std::thread(calls[i % 2]).join(); // comes back
    }
}

TEST_P(Locks, KeepTheLastErrorAndTheTimeThatAWaitMayTake) {
    proMutex mutex;
    proSimpleSem none(0), one(1);
    Task task([] {
        for (;;)
            pause();
        return 0U;
    });
    errno = EDOM;
    EXPECT_TRUE(mutex.Lock() && mutex.TryLock() && mutex.Unlock());
    EXPECT_TRUE(one.Decrement() && one.Increment() && task.Start());
    EndOf end(task.GetHandle());
    zelEvent* const events[] = {&end, nullptr};
    const std::function<bool()> waits[] = {
        [&] { return WaitForSingleObject(none.GetHandle(), 50) == zelWaitSignaled; },
        [&] { return WaitForSingleObject(task.GetHandle(), 50) == zelWaitSignaled; },
        [&] { return end.Wait(50); },
        [&] { return zelEvent::WaitAny(events, 2, 50) == 0; },
    };
    for (const auto& wait : waits) {
        const auto took = support::MillisecondsOf([&] { EXPECT_FALSE(wait()); });
        EXPECT_TRUE(took >= 49 && took < 5000) << &wait - waits;
    }
    EXPECT_TRUE(task.Kill() && end.IsSignaled() && end.Wait(-1));
    EXPECT_EQ(0, zelEvent::WaitAny(events, 2, -1));
    EXPECT_EQ(EDOM, errno);
}

TEST_P(Locks, AdmitAsManyAsTheyShould) {
    proMutex mutex;
    proSimpleSem places(3);
    long owners = 0, total = 0;
    std::atomic<int> inside{0};
    std::thread threads[5];
    for (int number = 0; number < 5; ++number)
        threads[number] = std::thread([&, number] {
            for (int i = 0; i < 10000; ++i) {
                EXPECT_TRUE(places.Decrement());
                EXPECT_LE(++inside, 3);
                if ((i + number) % 3 != 0 || !mutex.TryLock())
                    mutex.Lock();
                EXPECT_TRUE(i % 5 != 0 || (mutex.Lock() && mutex.Unlock()));
                EXPECT_EQ(1, ++owners);
                ++total;
                --owners;
                mutex.Unlock();
                --inside;
                EXPECT_TRUE(places.Increment());
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(50000, total);
    EXPECT_TRUE(mutex.TryLock());
    EXPECT_FALSE(places.Increment());
}

TEST_P(Locks, ASemaphoreIsFullAtBirthAndMayGoWithTheLastOneThrough) {
    proSimpleSem none(0), two(2);
    EXPECT_FALSE(none.Increment() || two.Increment());
    EXPECT_EQ(zelWaitTimeout, WaitForSingleObject(none.GetHandle(), 5));
    EXPECT_EQ(nullptr, uCreateSemaphore(nullptr, 2, 1, nullptr));
    EXPECT_TRUE(two.Decrement() && two.Decrement());
    EXPECT_EQ(zelWaitTimeout, WaitForSingleObject(two.GetHandle(), 0));
    long before = -1;
    EXPECT_FALSE(ReleaseSemaphore(two.GetHandle(), 3, &before));
    EXPECT_TRUE(ReleaseSemaphore(two.GetHandle(), 2, &before));
    EXPECT_EQ(0, before);
    EXPECT_TRUE(two.Decrement() && two.Decrement());
    for (int i = 0; i < 2000; ++i) {
        auto done = std::make_unique<proSimpleSem>(1);
        done->Decrement();
        std::thread giver([semaphore = done.get()] { semaphore->Increment(); });
        done->Decrement();
        done.reset(); // while the giver may still be on its way out
        giver.join();
    }
}

} // namespace
