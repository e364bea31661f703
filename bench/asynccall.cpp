// SPDX-License-Identifier: MIT
//
// A call from its start to its event, beside std::async from its start to its future.
#include <future>
#include <memory>

#include <benchmark/benchmark.h>

#include "asynccall.h"

namespace {

int Next(void* number) {
    return *static_cast<int*>(number) + 1;
}

void StandardAsync(benchmark::State& state) {
    int number = 1;
    for (auto _ : state) {
        std::future<int> call = std::async(std::launch::async, Next, &number);
        benchmark::DoNotOptimize(call.get());
    }
}

void CallToEvent(benchmark::State& state) {
    int number = 1;
    for (auto _ : state) {
        const std::unique_ptr<ptkAsyncCallEvent> call(call_async_func(Next, &number));
        call->Wait(-1);
        benchmark::DoNotOptimize(call->GetReturnValue());
    }
}

BENCHMARK(StandardAsync)->UseRealTime();
BENCHMARK(CallToEvent)->UseRealTime();

} // namespace
