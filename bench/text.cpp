// SPDX-License-Identifier: MIT
//
// Neutral text beside one pass of the C library's own conversion over the same text, which is
// the least that any way through wide text costs; and quoting beside std::quoted.
#include "mbconv.h"

#include <clocale>
#include <cstdlib>
#include <iomanip>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

enum Kind { Ascii, Mixed, Cjk };

std::string Text(Kind kind, std::size_t size) {
    const std::string unit = kind == Ascii   ? "plain ascii text "
                             : kind == Mixed ? "Grüße aus Köln, viele "
                                             : "漢字かな交じり文";
    std::string text;
    while (text.size() + unit.size() <= size)
        text += unit;
    return text + std::string(size - text.size(), '.');
}

/// Runs in the locale in which a kind is at home: plain ASCII has no need of UTF-8.
std::string Prepare(benchmark::State& state) {
    const auto kind = static_cast<Kind>(state.range(1));
    std::setlocale(LC_ALL, kind == Ascii ? "C" : "C.UTF-8");
    std::string text = Text(kind, static_cast<std::size_t>(state.range(0)));
    return text;
}

void Finish(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * state.range(0));
    std::setlocale(LC_ALL, "C");
}

void RivalMbstowcs(benchmark::State& state) {
    const std::string text = Prepare(state);
    std::vector<wchar_t> wide(text.size() + 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::mbstowcs(wide.data(), text.c_str(), wide.size()));
        benchmark::ClobberMemory();
    }
    Finish(state);
}

void NativeToNeut(benchmark::State& state) {
    const std::string text = Prepare(state);
    for (auto _ : state) {
        char* neutral = mbxNativeToNeut(text.c_str());
        benchmark::DoNotOptimize(neutral);
        operator delete(neutral);
    }
    Finish(state);
}

void NeutToNative(benchmark::State& state) {
    const std::string text = Prepare(state);
    for (auto _ : state) {
        char* native = mbxNeutToNative(text.c_str());
        benchmark::DoNotOptimize(native);
        operator delete(native);
    }
    Finish(state);
}

void RivalQuoted(benchmark::State& state) {
    const std::string text = Text(Ascii, static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::ostringstream out;
        out << std::quoted(text);
        benchmark::DoNotOptimize(out);
    }
}

void Quote(benchmark::State& state) {
    const std::string text = Text(Ascii, static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::ostringstream out;
        NativeStringToCStyle(text.c_str(), out);
        benchmark::DoNotOptimize(out);
    }
}

void Sizes(benchmark::internal::Benchmark* run) {
    run->ArgNames({"bytes", "kind"});
    run->ArgsProduct({{64, 64 * 1024}, {Ascii, Mixed, Cjk}});
}

BENCHMARK(RivalMbstowcs)->Apply(Sizes);
BENCHMARK(NativeToNeut)->Apply(Sizes);
BENCHMARK(NeutToNative)->Apply(Sizes);
BENCHMARK(RivalQuoted)->Arg(64)->Arg(64 * 1024);
BENCHMARK(Quote)->Arg(64)->Arg(64 * 1024);

} // namespace
