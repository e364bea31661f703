// SPDX-License-Identifier: MIT
//
// Sorted maps beside std::map, and beside boost::container::flat_map where it is installed:
// finding keys that are there, at random; adding keys in order and at random. Interned strings
// beside an std::unordered_set of strings and, where GLib is installed, its g_intern_string; and
// comparing them beside comparing texts.
#include <dsortmap.h>
#include <dsunique.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include <benchmark/benchmark.h>

#if __has_include(<boost/container/flat_map.hpp>)
#include <boost/container/flat_map.hpp>
#endif
#if __has_include(<glib.h>)
#include <glib.h>
#endif

namespace {

/// Addresses as a heap gives them out: multiples of 16, in order.
std::vector<void*> Keys(std::size_t count) {
    std::vector<void*> keys;
    for (std::size_t i = 1; i <= count; ++i)
        keys.push_back(reinterpret_cast<void*>(i * 48));
    return keys;
}

std::vector<void*> Shuffled(std::vector<void*> keys) {
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

/// A value that is a pointer, like those of the maps in use.
char value;

template <typename Map>
struct Standard {
    Map map;
    void Add(void* key) { map.emplace(key, &value); }
    bool Has(void* key) const {
        const auto found = map.find(key);
        return found != map.end() && found->second == &value;
    }
};

struct Sorted {
    dsScalarMap<char*, void*> map;
    void Add(void* key) { map.Add(key, &value); }
    bool Has(void* key) const {
        char* found = nullptr;
        return map.Find(key, found) && found == &value;
    }
};

using StdMap = Standard<std::map<void*, char*>>;

template <typename Map>
void Find(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    Map map;
    // The nodes of a tree lie where its history has put them.
    for (void* key : std::is_same_v<Map, StdMap> ? Shuffled(Keys(count)) : Keys(count))
        map.Add(key);
    const std::vector<void*> sought = Shuffled(Keys(count));
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(map.Has(sought[i]));
        i = i + 1 < count ? i + 1 : 0;
    }
}

template <typename Map>
void Add(benchmark::State& state) {
    const auto ordered = Keys(100'000);
    const std::vector<void*> keys = state.range(0) != 0 ? Shuffled(ordered) : ordered;
    for (auto _ : state) {
        Map map;
        for (void* key : keys)
            map.Add(key);
        benchmark::DoNotOptimize(map.Has(keys[0]));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.size()));
}

void FindSizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(100)->Arg(1000)->Arg(100'000)->Arg(1'000'000);
}
void AddOrders(benchmark::internal::Benchmark* bench) {
    bench->ArgName("random")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
}

BENCHMARK_TEMPLATE(Find, StdMap)->Apply(FindSizes);
BENCHMARK_TEMPLATE(Find, Sorted)->Apply(FindSizes);
BENCHMARK_TEMPLATE(Add, StdMap)->Apply(AddOrders);
BENCHMARK_TEMPLATE(Add, Sorted)->Apply(AddOrders);
#if __has_include(<boost/container/flat_map.hpp>)
using FlatMap = Standard<boost::container::flat_map<void*, char*>>;
BENCHMARK_TEMPLATE(Find, FlatMap)->Apply(FindSizes);
BENCHMARK_TEMPLATE(Add, FlatMap)->Apply(AddOrders);
#endif

std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (int i = 0; i < 10'000; ++i)
        names.push_back("assembly/part_" + std::to_string(i));
    std::shuffle(names.begin(), names.end(), std::mt19937(1));
    return names;
}

/// Looks up the names one after the other.
template <typename Find>
void EachName(benchmark::State& state, const std::vector<std::string>& names, Find find) {
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(find(names[i].c_str()));
        i = i + 1 < names.size() ? i + 1 : 0;
    }
}

void InternExisting(benchmark::State& state) {
    const std::vector<std::string> names = Names();
    std::vector<std::unique_ptr<dsUniqueString>> held;
    for (const std::string& name : names)
        held.push_back(std::make_unique<dsUniqueString>(name.c_str()));
    EachName(state, names, [](const char* name) { return dsUniqueString(name).GiveString(); });
}

void FindInUnorderedSet(benchmark::State& state) {
    const std::vector<std::string> names = Names();
    const std::unordered_set<std::string> held(names.begin(), names.end());
    EachName(state, names, [&](const char* name) { return held.find(name); });
}

#if __has_include(<glib.h>)
void InternExistingInGLib(benchmark::State& state) {
    const std::vector<std::string> names = Names();
    for (const std::string& name : names)
        g_intern_string(name.c_str());
    EachName(state, names, [](const char* name) { return g_intern_string(name); });
}
BENCHMARK(InternExistingInGLib);
#endif

void CompareInterned(benchmark::State& state) {
    const dsUniqueString a("assembly/subassembly/part"), b("assembly/subassembly/part");
    for (auto _ : state)
        benchmark::DoNotOptimize(a == b);
}

void CompareTexts(benchmark::State& state) {
    const std::string a("assembly/subassembly/part"), b("assembly/subassembly/part");
    for (auto _ : state)
        benchmark::DoNotOptimize(a == b);
}

BENCHMARK(InternExisting);
BENCHMARK(FindInUnorderedSet);
BENCHMARK(CompareInterned);
BENCHMARK(CompareTexts);

} // namespace
