// SPDX-License-Identifier: MIT
#include <asynccall.h>
#include <prolock.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <Poco/ActiveMethod.h>
#include <Poco/Mutex.h>
#include <Poco/Semaphore.h>
#include <pthread.h>
#include <semaphore.h>

#include "contest.h"

namespace {

/// A wrong result is no result.
void Must(bool right, const char* contender) {
    if (!right) {
        std::cerr << "calls: a wrong result of " << contender << '\n';
        std::abort();
    }
}

// A call: the successor of a number, found by another thread.

int Next(void* number) {
    return *static_cast<int*>(number) + 1;
}

int OursNext(int& number) {
    const std::unique_ptr<ptkAsyncCallEvent> call(call_async_func(Next, &number));
    Must(call && call->Wait(-1), contest::Plinth);
    return call->GetReturnValue();
}

int StandardNext(int& number) {
    return std::async(std::launch::async, Next, &number).get();
}

class Active {
public:
    Active() : call(this, &Active::Call) {}
    Poco::ActiveMethod<int, int*, Active> call;

private:
    // NOLINTNEXTLINE(readability-convert-member-functions-to-static): what is called is a member
    int Call(int* const& number) { return Next(number); }
};

int PocoNext(int& number) {
    static Active active;
    Poco::ActiveResult<int> result = active.call(&number);
    result.wait();
    return result.data();
}

struct Job {
    int* number;
    int result;
};

int BareNext(int& number) {
    Job job{&number, 0};
    pthread_t thread;
    const auto body = [](void* word) -> void* {
        Job& given = *static_cast<Job*>(word);
        given.result = Next(given.number);
        return nullptr;
    };
    Must(pthread_create(&thread, nullptr, body, &job) == 0, contest::SystemCalls);
    Must(pthread_join(thread, nullptr) == 0, contest::SystemCalls);
    return job.result;
}

void Calls(const char* contender, int (*next)(int&)) {
    contest::Contend({"asynchronous call"}, contender, [=](benchmark::State& state) {
        int number = 41;
        Must(next(number) == 42, contender);
        for (auto _ : state)
            benchmark::DoNotOptimize(next(number));
    });
}

// A mutex that its owner may lock again.

struct Ours {
    proMutex mutex;
    void lock() { mutex.Lock(); }
    void unlock() { mutex.Unlock(); }
};

/// One word to sleep at; it knows neither its owner nor how many times that has locked it.
class Word {
public:
    void lock() {
        int expected = 0;
        if (word.compare_exchange_strong(expected, 1, std::memory_order_acquire))
            return;
        while (word.exchange(2, std::memory_order_acquire) != 0)
            word.wait(2);
    }
    void unlock() {
        if (word.exchange(0, std::memory_order_release) == 2)
            word.notify_one();
    }

private:
    std::atomic<int> word{0};
};

/// What the threads that contend have in common, laid out alike for all.
template <typename Mutex>
struct Common {
    alignas(64) Mutex mutex;
    alignas(64) long steps = 0;
};

/// Some work inside and as much outside, so that threads do meet.
template <typename Mutex>
void Rounds(Common<Mutex>& common, long rounds, long steps) {
    const auto work = [steps](long& number) {
        for (long i = 0; i < steps; ++i)
            benchmark::DoNotOptimize(++number);
    };
    long own = 0;
    for (long round = 0; round < rounds; ++round) {
        common.mutex.lock();
        work(common.steps);
        common.mutex.unlock();
        work(own);
    }
}

/// The same number of rounds for each of the threads, which start together: the time of one round
/// is that of all of them, divided by this number.
template <typename Mutex>
void Contended(benchmark::State& state, int threads, long steps, const char* contender) {
    const long rounds = steps < 100 ? 20'000 : 5'000;
    const auto common = std::make_unique<Common<Mutex>>();
    long expected = 0;
    while (state.KeepRunningBatch(rounds)) {
        std::atomic<int> missing{threads};
        const auto contend = [&] {
            --missing;
            while (missing != 0)
                std::this_thread::yield();
            Rounds(*common, rounds, steps);
        };
        std::vector<std::thread> others;
        while (static_cast<int>(others.size()) < threads - 1)
            others.emplace_back(contend);
        contend();
        for (std::thread& other : others)
            other.join();
        expected += threads * rounds * steps;
    }
    Must(common->steps == expected, contender);
}

/// With `owned`, by a thread that owns the mutex already.
template <typename Mutex>
void Alone(benchmark::State& state, bool owned) {
    const auto common = std::make_unique<Common<Mutex>>();
    const std::unique_lock<Mutex> first =
        owned ? std::unique_lock(common->mutex) : std::unique_lock<Mutex>();
    for (auto _ : state) {
        common->mutex.lock();
        benchmark::ClobberMemory();
        common->mutex.unlock();
    }
}

template <typename Mutex>
void Mutexes(const char* contender) {
    contest::Contend({"mutex, nobody else there"}, contender,
                     [](benchmark::State& state) { Alone<Mutex>(state, false); });
    if constexpr (!std::is_same_v<Mutex, Word>)
        contest::Contend({"mutex, by its owner again"}, contender,
                         [](benchmark::State& state) { Alone<Mutex>(state, true); });
    for (const int threads : {2, 4})
        for (const long steps : {10L, 300L})
            contest::Contend({"mutex, " + std::to_string(threads) + " threads, sections of " +
                              std::to_string(steps) + " steps"},
                             contender, [=](benchmark::State& state) {
                                 Contended<Mutex>(state, threads, steps, contender);
                             });
}

// A semaphore of one, which is full at birth.

struct OurSemaphore {
    proSimpleSem semaphore{1};
    void Take() { Must(semaphore.Decrement(), contest::Plinth); }
    void Give() { Must(semaphore.Increment(), contest::Plinth); }
};

struct StandardSemaphore {
    std::counting_semaphore<1> semaphore{1};
    void Take() { semaphore.acquire(); }
    void Give() { semaphore.release(); }
};

struct PocoSemaphore {
    Poco::Semaphore semaphore{1};
    void Take() { semaphore.wait(); }
    void Give() { semaphore.set(); }
};

struct BareSemaphore {
    sem_t semaphore;
    BareSemaphore() { sem_init(&semaphore, 0, 1); }
    BareSemaphore(const BareSemaphore&) = delete;
    BareSemaphore& operator=(const BareSemaphore&) = delete;
    ~BareSemaphore() { sem_destroy(&semaphore); }
    void Take() { Must(sem_wait(&semaphore) == 0, contest::PlainCode); }
    void Give() { Must(sem_post(&semaphore) == 0, contest::PlainCode); }
};

template <typename Semaphore>
void TakeAndGive(benchmark::State& state) {
    Semaphore semaphore;
    for (auto _ : state) {
        semaphore.Take();
        benchmark::ClobberMemory();
        semaphore.Give();
    }
}

/// There and back: each thread waits for the other.
template <typename Semaphore>
void PassOn(benchmark::State& state, const char* contender) {
    std::array<Semaphore, 2> turn;
    turn[0].Take();
    turn[1].Take();
    long there = 0, back = 0;
    bool over = false;
    std::thread other([&] {
        for (;;) {
            turn[1].Take();
            if (over)
                return;
            ++there;
            turn[0].Give();
        }
    });
    for (auto _ : state) {
        turn[1].Give();
        turn[0].Take();
        ++back;
    }
    over = true;
    turn[1].Give();
    other.join();
    Must(there == back, contender);
}

template <typename Semaphore>
void Semaphores(const char* contender) {
    contest::Contend({"semaphore, nobody else there"}, contender, TakeAndGive<Semaphore>);
    contest::Contend({"semaphore, to another thread and back"}, contender,
                     [=](benchmark::State& state) { PassOn<Semaphore>(state, contender); });
}

} // namespace

void Contestants() {
    // A process that never had a second thread is spared atomic operations by the C library: not
    // what a lock is for.
    std::thread([] {}).join();
    Calls(contest::Plinth, OursNext);
    Calls("std::async", StandardNext);
    Calls("POCO ActiveMethod", PocoNext);
    Calls(contest::SystemCalls, BareNext);
    Mutexes<Ours>(contest::Plinth);
    Mutexes<std::recursive_mutex>("std::recursive_mutex");
    Mutexes<Poco::Mutex>("POCO Mutex");
    Mutexes<Word>(contest::PlainCode);
    Semaphores<OurSemaphore>(contest::Plinth);
    Semaphores<StandardSemaphore>("std::counting_semaphore");
    Semaphores<PocoSemaphore>("POCO Semaphore");
    Semaphores<BareSemaphore>(contest::PlainCode);
}
