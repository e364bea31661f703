// SPDX-License-Identifier: MIT
//
// Appending to a byte array beside std::vector in a second thread, which has an arena of its own:
// in blocks as a socket delivers them, and in small blocks.
#include <dsdatcol.h>

#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

using Size = std::int64_t;

const char block[4096] = {};

struct Vector {
    std::vector<char> bytes;
    void Append(unsigned int count, const char* source) {
        bytes.insert(bytes.end(), source, source + count);
    }
    const char* Data() const { return bytes.data(); }
};

struct Array {
    dsXArray<char> bytes{nullptr};
    void Append(unsigned int count, const char* source) { bytes.Append(count, source); }
    const char* Data() const { return bytes.GetDataPtr(); }
};

template <typename Container>
void FillInBlocks(Size size, unsigned int count) {
    Container container;
    for (Size done = 0; done < size; done += count)
        container.Append(count, block);
    benchmark::DoNotOptimize(container.Data());
}

template <typename Container>
void BlocksInThread(benchmark::State& state) {
    for (auto _ : state)
        std::thread([&] {
            FillInBlocks<Container>(state.range(0), static_cast<unsigned int>(state.range(1)));
        }).join();
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void Sizes(benchmark::internal::Benchmark* bench) {
    bench->Unit(benchmark::kMicrosecond)->UseRealTime();
    bench->Args({16 << 10, 4096})->Args({1 << 20, 4096})->Args({64 << 20, 4096});
    bench->Args({1 << 20, 100});
}

BENCHMARK_TEMPLATE(BlocksInThread, Vector)->Apply(Sizes);
BENCHMARK_TEMPLATE(BlocksInThread, Array)->Apply(Sizes);

} // namespace
