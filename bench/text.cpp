// SPDX-License-Identifier: MIT
//
// Quoting of plain text, beside std::quoted.
#include "mbconv.h"

#include <iomanip>
#include <sstream>
#include <string>

#include <benchmark/benchmark.h>

namespace {

std::string Text(std::size_t size) {
    std::string text;
    while (text.size() < size)
        text += "plain ascii text ";
    return text.substr(0, size);
}

void RivalQuoted(benchmark::State& state) {
    const std::string text = Text(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::ostringstream out;
        out << std::quoted(text);
        benchmark::DoNotOptimize(out);
    }
}

void Quote(benchmark::State& state) {
    const std::string text = Text(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::ostringstream out;
        NativeStringToCStyle(text.c_str(), out);
        benchmark::DoNotOptimize(out);
    }
}

BENCHMARK(RivalQuoted)->Arg(64)->Arg(64 * 1024);
BENCHMARK(Quote)->Arg(64)->Arg(64 * 1024);

} // namespace
