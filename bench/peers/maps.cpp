// SPDX-License-Identifier: MIT
#include <dsortmap.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include <boost/container/flat_map.hpp>
#include <glib.h>

#include "contest.h"

namespace {

using Keys = std::vector<char*>;

constexpr std::size_t Sizes[] = {100, 1000, 10'000, 100'000};
/// Where the order is random: an array takes time as the square of them.
constexpr std::size_t RandomSizes[] = {30, 300, 3000, 30'000};

/// Addresses as a heap gives them out, in order. Each is its own value.
Keys Ordered(std::size_t count) {
    Keys keys;
    for (std::size_t i = 1; i <= count; ++i)
        keys.push_back(reinterpret_cast<char*>(i * 48));
    return keys;
}

Keys Shuffled(std::size_t count, unsigned int seed = 1) {
    Keys keys = Ordered(count);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(seed));
    return keys;
}

/// Enough orders, one behind the other, that the processor cannot learn by heart where keys lie.
Keys ManyOrders(std::size_t count, std::size_t least = 200'000) {
    Keys all;
    for (unsigned int seed = 1; all.size() < least; ++seed) {
        const Keys keys = Shuffled(count, seed);
        all.insert(all.end(), keys.begin(), keys.end());
    }
    return all;
}

std::uintptr_t Number(const void* value) {
    return reinterpret_cast<std::uintptr_t>(value);
}

struct Ours {
    static constexpr bool Nodes = false;
    dsScalarMap<char*, void*> map;
    void Add(char* key) { map.Add(key, key); }
    char* Find(char* key) const {
        char* found = nullptr;
        return map.Find(key, found) ? found : nullptr;
    }
    std::uintptr_t Sum() const {
        std::uintptr_t sum = 0;
        for (unsigned int i = 0, size = map.GetSize(); i < size; ++i)
            sum += Number(map.GetByIndex(i));
        return sum;
    }
    std::uintptr_t SumOfIterator() const {
        std::uintptr_t sum = 0;
        const std::unique_ptr<dsBaseIter<char*>> iter(map.GetIter());
        for (iter->SetAtFirst(); !iter->Finished(); iter->MoveToNext())
            sum += Number(iter->Current());
        return sum;
    }
};

template <typename Map, bool HasNodes>
struct Standard {
    static constexpr bool Nodes = HasNodes;
    Map map;
    void Add(char* key) { map.emplace(key, key); }
    char* Find(char* key) const {
        const auto found = map.find(key);
        return found != map.end() ? found->second : nullptr;
    }
    std::uintptr_t Sum() const { return SumOfIterator(); }
    std::uintptr_t SumOfIterator() const {
        std::uintptr_t sum = 0;
        for (const auto& entry : map)
            sum += Number(entry.second);
        return sum;
    }
};

gint CompareAddresses(gconstpointer a, gconstpointer b) {
    return (Number(a) > Number(b)) - (Number(a) < Number(b));
}

gboolean AddToSum(gpointer, gpointer value, gpointer sum) {
    *static_cast<std::uintptr_t*>(sum) += Number(value);
    return FALSE;
}

struct Glib {
    static constexpr bool Nodes = true;
    GTree* map = g_tree_new(CompareAddresses);
    Glib() = default;
    Glib(const Glib&) = delete;
    Glib& operator=(const Glib&) = delete;
    ~Glib() { g_tree_unref(map); }
    void Add(char* key) { g_tree_insert(map, key, key); }
    char* Find(char* key) const { return static_cast<char*>(g_tree_lookup(map, key)); }
    std::uintptr_t Sum() const {
        std::uintptr_t sum = 0;
        g_tree_foreach(map, AddToSum, &sum);
        return sum;
    }
    std::uintptr_t SumOfIterator() const {
        std::uintptr_t sum = 0;
        for (GTreeNode* node = g_tree_node_first(map); node != nullptr;
             node = g_tree_node_next(node))
            sum += Number(g_tree_node_value(node));
        return sum;
    }
};

/// A plain array of pairs, kept in order.
struct SortedArray {
    struct Entry {
        std::uintptr_t key;
        char* value;
    };
    static constexpr bool Nodes = false;
    std::vector<Entry> map;
    std::vector<Entry>::const_iterator Place(std::uintptr_t key) const {
        return std::lower_bound(
            map.begin(), map.end(), key,
            [](const Entry& entry, std::uintptr_t sought) { return entry.key < sought; });
    }
    void Add(char* key) {
        const auto place = Place(Number(key));
        if (place == map.end() || place->key != Number(key))
            map.insert(place, {Number(key), key});
    }
    char* Find(char* key) const {
        const auto place = Place(Number(key));
        return place != map.end() && place->key == Number(key) ? place->value : nullptr;
    }
    std::uintptr_t Sum() const { return SumOfIterator(); }
    std::uintptr_t SumOfIterator() const {
        std::uintptr_t sum = 0;
        for (const Entry& entry : map)
            sum += Number(entry.value);
        return sum;
    }
};

template <typename Map>
std::unique_ptr<Map> Filled(const Keys& keys) {
    auto map = std::make_unique<Map>();
    for (char* key : keys)
        map->Add(key);
    return map;
}

/// Stops the row if the map is none.
template <typename Map>
void Check() {
    const Keys keys = Shuffled(1000);
    const std::unique_ptr<Map> map = Filled<Map>(keys);
    map->Add(keys[0]);
    std::uintptr_t sum = 0;
    for (char* key : keys) {
        sum += Number(key);
        if (map->Find(key) != key || map->Find(key + 1) != nullptr)
            std::abort();
    }
    if (map->Sum() != sum || map->SumOfIterator() != sum)
        std::abort();
}

template <typename Map>
void Finding(const char* contender) {
    for (const std::size_t size : Sizes)
        contest::Contend({"find", size}, contender, [=](benchmark::State& state) {
            const Keys sought = ManyOrders(size);
            // The nodes of a tree lie where its history has put them; an array has no history.
            const std::unique_ptr<Map> map =
                Filled<Map>(Map::Nodes ? Shuffled(size) : Ordered(size));
            std::size_t i = 0;
            for (auto _ : state) {
                benchmark::DoNotOptimize(map->Find(sought[i]));
                i = i + 1 < sought.size() ? i + 1 : 0;
            }
        });
}

/// Fills a map with `size` of the keys in each round.
template <typename Map>
void Add(benchmark::State& state, const Keys& keys, std::size_t size) {
    std::size_t from = 0;
    for (auto _ : state) {
        Map map;
        for (std::size_t i = from; i < from + size; ++i)
            map.Add(keys[i]);
        benchmark::DoNotOptimize(map.Find(keys[from]));
        from = from + size < keys.size() ? from + size : 0;
    }
}

template <typename Map>
void Adding(const char* contender) {
    for (const std::size_t size : Sizes)
        contest::Contend({"add in order", size}, contender,
                         [=](benchmark::State& state) { Add<Map>(state, Ordered(size), size); });
    for (const std::size_t size : RandomSizes)
        contest::Contend({"add at random", size}, contender,
                         [=](benchmark::State& state) { Add<Map>(state, ManyOrders(size), size); });
}

template <typename Map>
void Walking(const char* contender) {
    for (const std::size_t size : Sizes) {
        contest::Contend({"walk", size}, contender, [=](benchmark::State& state) {
            const std::unique_ptr<Map> map = Filled<Map>(Ordered(size));
            for (auto _ : state)
                benchmark::DoNotOptimize(map->Sum());
        });
        contest::Contend({"walk by an iterator", size}, contender, [=](benchmark::State& state) {
            const std::unique_ptr<Map> map = Filled<Map>(Ordered(size));
            for (auto _ : state)
                benchmark::DoNotOptimize(map->SumOfIterator());
        });
    }
}

template <typename Map>
void All(const char* contender) {
    Check<Map>();
    Finding<Map>(contender);
    Adding<Map>(contender);
    Walking<Map>(contender);
}

} // namespace

void Contestants() {
    All<Ours>(contest::Plinth);
    All<Standard<std::map<void*, char*>, true>>("std::map");
    All<Standard<boost::container::flat_map<void*, char*>, false>>("boost::container::flat_map");
    All<Glib>("GTree");
    All<SortedArray>(contest::PlainCode);
}
