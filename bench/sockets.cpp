// SPDX-License-Identifier: MIT
//
// Connections made, used and closed, with a look at what they leave behind. For 100,000 of these:
//
//     bench_sockets --benchmark_filter=Connections --benchmark_min_time=20
#include "bench/echoserver.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include <unistd.h>

#include <benchmark/benchmark.h>

namespace {

long OpenDescriptors() {
    using Walk = std::filesystem::directory_iterator;
    return std::distance(Walk("/proc/self/fd"), Walk());
}

long ResidentKilobytes() {
    long total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

/// One connection with one message and its answer. Fails if descriptors or memory grow.
void Connections(benchmark::State& state) {
    EchoServer server;
    dsXArray<char> request(nullptr), answer(nullptr);
    request.Append(5, "hello");
    unsigned int host = 0;
    const auto serve = [&] {
        // Several addresses of the one server: a closed connection blocks its pair of ports for a
        // minute, and the ports of one pair would run out.
        const std::string address = "127.0.0." + std::to_string(1 + host++ % 8);
        const std::unique_ptr<psockStream> client(
            psockServer::Connect(address.c_str(), server.GetPort()));
        answer.Clear();
        if (!client || Write(*client, request) != errOK || Read(*client, answer) != errOK)
            state.SkipWithError("no answer");
    };
    for (int i = 0; i < 100; ++i)
        serve();
    const long descriptors = OpenDescriptors();
    const long kilobytes = ResidentKilobytes();
    for (auto _ : state)
        serve();
    const long more = OpenDescriptors() - descriptors;
    const long grown = ResidentKilobytes() - kilobytes;
    state.counters["descriptors"] = static_cast<double>(more);
    state.counters["KiB"] = static_cast<double>(grown);
    if (more > 1 || grown > 1024) // the last connection may be closing
        state.SkipWithError("the server grows");
}

BENCHMARK(Connections)->MeasureProcessCPUTime()->UseRealTime();

} // namespace
