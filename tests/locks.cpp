// SPDX-License-Identifier: MIT
#include "prolock.h"

#include <deque>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "outside/win32/threads.h"
#include "tests/tasks.h"
#include "tests/weather.h"

using namespace tasks;

namespace {

/// Whether a thread sleeps in the system, as whoever waits must.
bool Sleeps(unsigned long thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string number, name, state;
    return file >> number >> name >> state && state == "S";
}

class Locks : public support::WeatherTest {};

INSTANTIATE_TEST_SUITE_P(Weather, Locks,
                         testing::Values(support::Weather::Calm, support::Weather::Storm),
                         support::NameOf);

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
    EXPECT_TRUE(othersTry());
    mutex.~proMutex();
    EXPECT_FALSE(mutex.Lock() || mutex.TryLock() || mutex.Unlock());
}

TEST_P(Locks, AWaitingThreadSleepsAndOneKilledAtItIsCountedForEver) {
    proMutex mutex;
    std::atomic<unsigned long> waiting{0};
    ASSERT_TRUE(mutex.Lock());
    Task waiter([&] {
        waiting = GetCurrentThreadId();
        mutex.Lock();
        return 0U;
    });
    ASSERT_TRUE(waiter.Start());
    EXPECT_TRUE(Eventually([&] { return waiting != 0 && Sleeps(waiting); }));
    EXPECT_TRUE(waiter.Kill());
    EXPECT_TRUE(mutex.Unlock());
    EXPECT_FALSE(mutex.TryLock()); // gives way to the dead, while Lock does not
    EXPECT_TRUE(mutex.Lock() && mutex.Unlock());
}

TEST_P(Locks, OneAtATimeHoweverItGotIn) {
    proMutex mutex;
    long inside = 0, total = 0;
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number)
        threads.emplace_back([&, number] {
            for (int i = 0; i < 20000; ++i) {
                if ((i + number) % 3 != 0 || !mutex.TryLock())
                    mutex.Lock();
                if (i % 5 == 0) {
                    mutex.Lock();
                    mutex.Unlock();
                }
                EXPECT_EQ(1, ++inside);
                ++total;
                --inside;
                mutex.Unlock();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(80000, total);
    EXPECT_TRUE(mutex.TryLock());
}

TEST_P(Locks, ASemaphoreIsFullAtBirthAndCountsBetweenItsEnds) {
    proSimpleSem none(0);
    EXPECT_FALSE(none.Increment());
    EXPECT_EQ(zelWaitTimeout, WaitForSingleObject(none.GetHandle(), 5));
    EXPECT_EQ(nullptr, uCreateSemaphore(nullptr, 2, 1, nullptr));
    proSimpleSem two(2);
    EXPECT_FALSE(two.Increment());
    EXPECT_TRUE(two.Decrement() && two.Decrement());
    EXPECT_EQ(zelWaitTimeout, WaitForSingleObject(two.GetHandle(), 0));
    long before = -1;
    EXPECT_FALSE(ReleaseSemaphore(two.GetHandle(), 3, &before));
    EXPECT_TRUE(ReleaseSemaphore(two.GetHandle(), 2, &before));
    EXPECT_EQ(0, before);
    EXPECT_TRUE(two.Decrement() && two.Decrement());

    std::atomic<unsigned long> waiting{0};
    std::thread third([&] {
        waiting = GetCurrentThreadId();
        EXPECT_TRUE(two.Decrement());
    });
    EXPECT_TRUE(Eventually([&] { return waiting != 0 && Sleeps(waiting); }));
    EXPECT_TRUE(two.Increment());
    third.join();
}

TEST_P(Locks, ASemaphoreHandsOverAndMayGoWithTheLastOneThrough) {
    // A bounded queue: no more than its places, everything once.
    proSimpleSem places(3), items(1000000);
    while (WaitForSingleObject(items.GetHandle(), 0) == zelWaitSignaled)
        ; // full at birth, wanted empty
    proMutex mutex;
    std::deque<int> queue;
    std::atomic<long> sum{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number)
        threads.emplace_back([&, number] {
            for (int i = 1; i <= 5000; ++i) {
                const bool puts = number % 2 == 0;
                (puts ? places : items).Decrement();
                mutex.Lock();
                EXPECT_LE(queue.size(), 3U);
                if (puts) {
                    queue.push_back(i);
                } else {
                    sum += queue.front();
                    queue.pop_front();
                }
                mutex.Unlock();
                EXPECT_TRUE((puts ? items : places).Increment());
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(2 * 5000L * 5001 / 2, sum);

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
