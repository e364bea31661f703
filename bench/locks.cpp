// SPDX-License-Identifier: MIT
//
// proMutex beside the standard library's recursive mutex: with nobody else there, and by threads
// that get in each other's way.
#include <mutex>
#include <thread>

#include <benchmark/benchmark.h>

#include "prolock.h"

namespace {

struct Own {
    proMutex mutex;
    void lock() { mutex.Lock(); }
    void unlock() { mutex.Unlock(); }
};

/// A process that never had a second thread is spared atomic operations by the C library: not what
/// a lock is for.
[[maybe_unused]] const bool hasHadThreads = (std::thread([] {}).join(), true);

template <typename Mutex>
void Alone(benchmark::State& state) {
    Mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        benchmark::ClobberMemory();
        mutex.unlock();
    }
}

template <typename Mutex>
void AloneTwice(benchmark::State& state) {
    Mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.lock();
        mutex.unlock();
        mutex.unlock();
    }
}

/// Some work inside and as much outside, so that threads do meet.
template <typename Mutex>
void InTheWay(benchmark::State& state) {
    alignas(64) static Mutex mutex; // wherever the linker puts them, they lie alike
    alignas(64) static int counter = 0;
    const auto work = [&state](int& number) {
        for (long i = 0; i < state.range(0); ++i)
            benchmark::DoNotOptimize(++number);
    };
    int own = 0;
    for (auto _ : state) {
        mutex.lock();
        work(counter);
        mutex.unlock();
        work(own);
    }
}

BENCHMARK_TEMPLATE(Alone, std::recursive_mutex);
BENCHMARK_TEMPLATE(Alone, Own);
BENCHMARK_TEMPLATE(AloneTwice, std::recursive_mutex);
BENCHMARK_TEMPLATE(AloneTwice, Own);
BENCHMARK_TEMPLATE(InTheWay, std::recursive_mutex)
    ->Arg(10)
    ->Arg(300)
    ->Threads(2)
    ->Threads(4)
    ->UseRealTime();
BENCHMARK_TEMPLATE(InTheWay, Own)->Arg(10)->Arg(300)->Threads(2)->Threads(4)->UseRealTime();

} // namespace
