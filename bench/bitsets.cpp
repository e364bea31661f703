// SPDX-License-Identifier: MIT
//
// A set of 10 million bits beside std::vector<bool> and, where it is installed, Boost's
// dynamic_bitset, with one bit in a thousand, every other bit at random, and all bits on. The
// packed form stands beside a plain write of the same bytes.
#include <dsbitset.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#if __has_include(<boost/dynamic_bitset.hpp>)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#include <boost/dynamic_bitset.hpp>
#pragma GCC diagnostic pop
#define PLINTH_HAS_BOOST
#endif

#include <benchmark/benchmark.h>

namespace {

constexpr unsigned long size = 10'000'000;

/// The indices that are on, `perMille` of all.
std::vector<unsigned long> Indices(benchmark::State& state) {
    std::mt19937 random(1);
    std::vector<unsigned long> indices;
    const auto perMille = static_cast<unsigned long>(state.range(0));
    for (unsigned long i = 0; i < size; ++i)
        if (perMille == 1000 || random() % 1000 < perMille)
            indices.push_back(i);
    return indices;
}

struct Ours {
    explicit Ours(benchmark::State& state) : set(size) {
        for (const unsigned long i : Indices(state))
            set.SetOn(i);
    }
    unsigned long Count() {
        set.SetOn(0); // drops the count that is kept
        return set.GetSize();
    }
    unsigned long First() const { return set.First(); }
    unsigned long Next(unsigned long i) const { return set.Next(i); }
    unsigned long Rank(unsigned long i) const { return set.GetIndex(i); }
    void And(const Ours& other) { set &= other.set; }
    static constexpr unsigned long none = dsBitSet::none;
    dsBitSet set;
};

struct Standard {
    explicit Standard(benchmark::State& state) : set(size) {
        for (const unsigned long i : Indices(state))
            set[i] = true;
    }
    unsigned long Count() const { return Rank(size); }
    unsigned long First() const { return Find(set.begin()); }
    unsigned long Next(unsigned long i) const {
        return Find(set.begin() + static_cast<long>(i) + 1);
    }
    unsigned long Rank(unsigned long i) const {
        const auto end = set.begin() + static_cast<long>(i);
        return static_cast<unsigned long>(std::count(set.begin(), end, true));
    }
    unsigned long Find(std::vector<bool>::const_iterator from) const {
        return static_cast<unsigned long>(std::find(from, set.end(), true) - set.begin());
    }
    static constexpr unsigned long none = size;
    std::vector<bool> set;
};

#ifdef PLINTH_HAS_BOOST
struct Boost {
    explicit Boost(benchmark::State& state) : set(size) {
        for (const unsigned long i : Indices(state))
            set.set(i);
    }
    unsigned long Count() const { return set.count(); }
    unsigned long First() const { return set.find_first(); }
    unsigned long Next(unsigned long i) const { return set.find_next(i); }
    void And(const Boost& other) { set &= other.set; }
    static constexpr unsigned long none = boost::dynamic_bitset<>::npos;
    boost::dynamic_bitset<> set;
};
#endif

template <typename Set>
void Count(benchmark::State& state) {
    Set set(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(set.Count());
}

template <typename Set>
void NextOverAll(benchmark::State& state) {
    const Set set(state);
    for (auto _ : state) {
        unsigned long sum = 0;
        for (unsigned long i = set.First(); i != Set::none; i = set.Next(i))
            sum += i;
        benchmark::DoNotOptimize(sum);
    }
}

template <typename Set>
void And(benchmark::State& state) {
    Set set(state);
    const Set other(state);
    for (auto _ : state) {
        set.And(other);
        benchmark::ClobberMemory();
    }
}

template <typename Set>
void Rank(benchmark::State& state) {
    const Set set(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(set.Rank(size / 2));
}

void ByIndex(benchmark::State& state) {
    const Ours ours(state);
    const unsigned long middle = ours.set.GetSize() / 2;
    for (auto _ : state)
        benchmark::DoNotOptimize(ours.set.ByIndex(middle));
}

/// The bytes of the set, from a stream of their packed form.
std::vector<char> Bytes(const Ours& ours) {
    std::stringstream packed;
    ours.set.Save(packed);
    std::vector<char> bytes(size / 8 + 1);
    Unpack(packed, bytes.data());
    return bytes;
}

void Packing(benchmark::State& state) {
    const std::vector<char> bytes = Bytes(Ours(state));
    std::ostringstream out;
    for (auto _ : state) {
        out.seekp(0);
        Pack(bytes.data(), static_cast<unsigned int>(bytes.size()), out);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long>(bytes.size()));
}

void PlainWriting(benchmark::State& state) {
    const std::vector<char> bytes = Bytes(Ours(state));
    std::ostringstream out;
    for (auto _ : state) {
        out.seekp(0);
        out.write(bytes.data(), static_cast<long>(bytes.size()));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long>(bytes.size()));
}

void Unpacking(benchmark::State& state) {
    std::stringstream packed;
    Ours(state).set.Save(packed);
    std::vector<char> bytes(size / 8 + 1);
    for (auto _ : state) {
        packed.clear();
        packed.seekg(0);
        benchmark::DoNotOptimize(Unpack(packed, bytes.data()));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long>(bytes.size()));
}

void Densities(benchmark::internal::Benchmark* family) {
    family->ArgName("on_per_mille")->Arg(1)->Arg(500)->Arg(1000)->Unit(benchmark::kMicrosecond);
}

#define MEASURE(...) BENCHMARK(__VA_ARGS__)->Apply(Densities)
MEASURE(Count<Ours>);
MEASURE(Count<Standard>);
MEASURE(NextOverAll<Ours>);
MEASURE(NextOverAll<Standard>);
MEASURE(And<Ours>);
MEASURE(Rank<Ours>);
MEASURE(Rank<Standard>);
#ifdef PLINTH_HAS_BOOST
MEASURE(Count<Boost>);
MEASURE(NextOverAll<Boost>);
MEASURE(And<Boost>);
#endif
MEASURE(ByIndex);
MEASURE(Packing);
MEASURE(PlainWriting);
MEASURE(Unpacking);

} // namespace
