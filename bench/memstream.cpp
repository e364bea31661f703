// SPDX-License-Identifier: MIT
//
// 64 MiB through a stream in memory, in pieces of 4 KiB, beside std::stringstream.
#include <rwstream.h>

#include <sstream>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

constexpr long total = 64 << 20;
constexpr int piece = 4 << 10;

void MemStream(benchmark::State& state) {
    std::vector<char> data(piece, 'x');
    for (auto _ : state) {
        memStream stream;
        for (long done = 0; done < total; done += piece)
            stream.Write(data.data(), piece);
        stream.Seek(0, 0);
        int count = 0;
        for (long done = 0; done < total; done += piece)
            stream.Read(data.data(), piece, count);
        benchmark::DoNotOptimize(count);
    }
    state.SetBytesProcessed(state.iterations() * total);
}
BENCHMARK(MemStream)->Unit(benchmark::kMillisecond);

void StringStream(benchmark::State& state) {
    std::vector<char> data(piece, 'x');
    for (auto _ : state) {
        std::stringstream stream;
        for (long done = 0; done < total; done += piece)
            stream.write(data.data(), piece);
        stream.seekg(0);
        for (long done = 0; done < total; done += piece)
            stream.read(data.data(), piece);
        benchmark::DoNotOptimize(stream.gcount());
    }
    state.SetBytesProcessed(state.iterations() * total);
}
BENCHMARK(StringStream)->Unit(benchmark::kMillisecond);

void MemStreamLines(benchmark::State& state) {
    memStream stream;
    std::vector<char> line(80, 'x');
    line.back() = '\n';
    for (int i = 0; i < 10000; ++i)
        stream.Write(line.data(), 80);
    dsXArray<char> read(nullptr);
    for (auto _ : state) {
        stream.Seek(0, 0);
        for (int i = 0; i < 10000; ++i)
            stream.ReadLn(read, '\n');
    }
    state.SetBytesProcessed(state.iterations() * 800000);
}
BENCHMARK(MemStreamLines)->Unit(benchmark::kMillisecond);

} // namespace
