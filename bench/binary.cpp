// SPDX-License-Identifier: MIT
//
// Records of an int, a double, a short and a text of 32 bytes through a stream buffer in memory.
// The rivals: a standard stream that moves the same bytes, swapped by hand, through the same kind
// of buffer; and, as the least there can be, memcpy into an array.
#include "bdtstream.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "dsstring.h"

namespace {

constexpr int records = 1000;
constexpr std::size_t recordSize = 4 + 8 + 4 + 4 + 32;
const char* const text = "thirty-two bytes of plain text..";

std::uint32_t Swap(std::uint32_t word) {
    return __builtin_bswap32(word);
}
std::uint64_t Swap(double number) {
    return __builtin_bswap64(std::bit_cast<std::uint64_t>(number));
}

std::string Encoded() {
    std::stringbuf buffer;
    bdtOStream out(&buffer, 1);
    for (int i = 0; i < records; ++i)
        out << i << 0.5 * i << static_cast<short>(i) << text;
    return buffer.str();
}

void Count(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * records * static_cast<int64_t>(recordSize));
}

void Encode(benchmark::State& state) {
    std::stringbuf buffer(Encoded());
    for (auto _ : state) {
        buffer.pubseekpos(0, std::ios::out);
        bdtOStream out(&buffer, 1);
        for (int i = 0; i < records; ++i)
            out << i << 0.5 * i << static_cast<short>(i) << text;
        benchmark::DoNotOptimize(out.rdstate());
    }
    Count(state);
}

void RivalStreamEncode(benchmark::State& state) {
    std::stringstream out(Encoded());
    const auto put = [&](auto bits) {
        out.write(reinterpret_cast<const char*>(&bits), sizeof bits);
    };
    for (auto _ : state) {
        out.seekp(0);
        for (int i = 0; i < records; ++i) {
            put(Swap(static_cast<std::uint32_t>(i)));
            put(Swap(0.5 * i));
            put(Swap(static_cast<std::uint32_t>(static_cast<short>(i))));
            const std::size_t size = std::strlen(text);
            put(Swap(static_cast<std::uint32_t>(size)));
            out.write(text, static_cast<std::streamsize>(size));
        }
        benchmark::DoNotOptimize(out.good());
    }
    Count(state);
}

void RivalMemcpyEncode(benchmark::State& state) {
    std::vector<char> memory(records * recordSize);
    for (auto _ : state) {
        char* at = memory.data();
        const auto put = [&](auto bits) {
            std::memcpy(at, &bits, sizeof bits);
            at += sizeof bits;
        };
        for (int i = 0; i < records; ++i) {
            put(Swap(static_cast<std::uint32_t>(i)));
            put(Swap(0.5 * i));
            put(Swap(static_cast<std::uint32_t>(static_cast<short>(i))));
            const std::size_t size = std::strlen(text);
            put(Swap(static_cast<std::uint32_t>(size)));
            std::memcpy(at, text, size);
            at += size;
        }
        benchmark::ClobberMemory();
    }
    Count(state);
}

void Decode(benchmark::State& state) {
    std::stringbuf buffer(Encoded());
    int number = 0;
    double real = 0;
    short little = 0;
    dsString word;
    for (auto _ : state) {
        buffer.pubseekpos(0, std::ios::in);
        bdtIStream in(&buffer, 1);
        for (int i = 0; i < records; ++i) {
            in >> number >> real >> little >> word;
            benchmark::DoNotOptimize(number);
            benchmark::DoNotOptimize(real);
            benchmark::DoNotOptimize(little);
        }
        benchmark::DoNotOptimize(in.rdstate());
    }
    Count(state);
}

void RivalStreamDecode(benchmark::State& state) {
    std::stringstream in(Encoded());
    const auto get = [&](auto bits) {
        in.read(reinterpret_cast<char*>(&bits), sizeof bits);
        return bits;
    };
    for (auto _ : state) {
        in.seekg(0);
        for (int i = 0; i < records; ++i) {
            benchmark::DoNotOptimize(Swap(get(std::uint32_t())));
            benchmark::DoNotOptimize(Swap(get(0.0)));
            benchmark::DoNotOptimize(Swap(get(std::uint32_t())));
            std::string word(Swap(get(std::uint32_t())), '\0');
            in.read(word.data(), static_cast<std::streamsize>(word.size()));
            benchmark::DoNotOptimize(word);
        }
    }
    Count(state);
}

void RivalMemcpyDecode(benchmark::State& state) {
    const std::string memory = Encoded();
    for (auto _ : state) {
        const char* at = memory.data();
        const auto get = [&](auto bits) {
            std::memcpy(&bits, at, sizeof bits);
            at += sizeof bits;
            return bits;
        };
        for (int i = 0; i < records; ++i) {
            benchmark::DoNotOptimize(Swap(get(std::uint32_t())));
            benchmark::DoNotOptimize(Swap(get(0.0)));
            benchmark::DoNotOptimize(Swap(get(std::uint32_t())));
            const std::size_t size = Swap(get(std::uint32_t()));
            const std::string word(at, size);
            at += size;
            benchmark::DoNotOptimize(word.data());
        }
    }
    Count(state);
}

BENCHMARK(Encode);
BENCHMARK(RivalStreamEncode);
BENCHMARK(RivalMemcpyEncode);
BENCHMARK(Decode);
BENCHMARK(RivalStreamDecode);
BENCHMARK(RivalMemcpyDecode);

} // namespace
