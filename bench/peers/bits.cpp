// SPDX-License-Identifier: MIT
#include <dsbitset.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/dynamic_bitset.hpp>

#include "contest.h"

namespace {

constexpr std::size_t Sizes[] = {4000, 40'000, 400'000, 4'000'000};
/// How many of a thousand bits are on, at random.
constexpr unsigned int Few = 1, Half = 500, Every = 1000;
/// The size of the sets that are stored.
constexpr std::size_t StoredBits = 4'000'000;

struct Ours {
    explicit Ours(std::size_t size) : set(size) {}
    void Put(std::size_t i) { set.SetOn(i); }
    std::size_t Count() const { return set.GetSize(); }
    std::size_t First() const { return set.First(); }
    std::size_t Next(std::size_t i) const { return set.Next(i); }
    bool Ended(std::size_t i) const { return i == dsBitSet::none; }
    std::size_t Rank(std::size_t i) const { return set.GetIndex(i); }
    void And(const Ours& other) { set &= other.set; }
    void Or(const Ours& other) { set |= other.set; }
    void Save(std::ostream& os) { set.Save(os); }
    void Restore(std::istream& is) { set.Restore(is); }
    dsBitSet set;
};

struct Standard {
    explicit Standard(std::size_t size) : set(size) {}
    void Put(std::size_t i) { set[i] = true; }
    std::size_t Count() const { return Rank(set.size()); }
    std::size_t First() const { return Find(0); }
    std::size_t Next(std::size_t i) const { return Find(i + 1); }
    bool Ended(std::size_t i) const { return i == set.size(); }
    std::size_t Rank(std::size_t i) const {
        return static_cast<std::size_t>(std::count(set.begin(), At(i), true));
    }
    std::size_t Find(std::size_t from) const {
        return static_cast<std::size_t>(std::find(At(from), set.end(), true) - set.begin());
    }
    std::vector<bool>::const_iterator At(std::size_t i) const {
        return set.begin() + static_cast<std::ptrdiff_t>(i);
    }
    std::vector<bool> set;
};

struct Boost {
    using Set = boost::dynamic_bitset<>;
    explicit Boost(std::size_t size) : set(size), blocks(set.num_blocks()) {}
    void Put(std::size_t i) { set.set(i); }
    std::size_t Count() const { return set.count(); }
    std::size_t First() const { return set.find_first(); }
    std::size_t Next(std::size_t i) const { return set.find_next(i); }
    bool Ended(std::size_t i) const { return i == Set::npos; }
    void And(const Boost& other) { set &= other.set; }
    void Or(const Boost& other) { set |= other.set; }
    void Save(std::ostream& os) {
        boost::to_block_range(set, blocks.begin());
        os.write(reinterpret_cast<const char*>(blocks.data()), Bytes());
    }
    void Restore(std::istream& is) {
        is.read(reinterpret_cast<char*>(blocks.data()), Bytes());
        boost::from_block_range(blocks.begin(), blocks.end(), set);
    }
    std::streamsize Bytes() const {
        return static_cast<std::streamsize>(blocks.size() * sizeof blocks[0]);
    }
    Set set;
    std::vector<Set::block_type> blocks;
};

/// Words, and loops over them.
struct Words {
    using Word = std::uint64_t;
    explicit Words(std::size_t size) : set((size + 63) / 64) {}
    void Put(std::size_t i) { set[i / 64] |= Word{1} << i % 64; }
    std::size_t Count() const { return Rank(set.size() * 64); }
    std::size_t First() const { return Find(0); }
    std::size_t Next(std::size_t i) const { return Find(i + 1); }
    bool Ended(std::size_t i) const { return i == ~std::size_t{0}; }
    std::size_t Rank(std::size_t i) const {
        std::size_t on = 0;
        for (std::size_t word = 0; word < i / 64; ++word)
            on += static_cast<std::size_t>(std::popcount(set[word]));
        if (i % 64 != 0)
            on += static_cast<std::size_t>(std::popcount(set[i / 64] << (64 - i % 64)));
        return on;
    }
    std::size_t Find(std::size_t from) const {
        Word wanted = ~Word{0} << from % 64;
        for (std::size_t word = from / 64; word < set.size(); ++word, wanted = ~Word{0})
            if (const Word on = set[word] & wanted; on != 0)
                return word * 64 + static_cast<std::size_t>(std::countr_zero(on));
        return ~std::size_t{0};
    }
    void And(const Words& other) {
        for (std::size_t word = 0; word < set.size(); ++word)
            set[word] &= other.set[word];
    }
    void Or(const Words& other) {
        for (std::size_t word = 0; word < set.size(); ++word)
            set[word] |= other.set[word];
    }
    void Save(std::ostream& os) { os.write(reinterpret_cast<const char*>(set.data()), Bytes()); }
    void Restore(std::istream& is) { is.read(reinterpret_cast<char*>(set.data()), Bytes()); }
    std::streamsize Bytes() const {
        return static_cast<std::streamsize>(set.size() * sizeof set[0]);
    }
    std::vector<Word> set;
};

/// The indices that are on; 0 always, so that no set begins with what could be a digit.
const std::vector<std::size_t>& Indices(std::size_t size, unsigned int perMille) {
    static std::map<std::pair<std::size_t, unsigned int>, std::vector<std::size_t>> known;
    std::vector<std::size_t>& indices = known[{size, perMille}];
    if (indices.empty()) {
        std::mt19937 random(1);
        for (std::size_t i = 0; i < size; ++i)
            if (i == 0 || random() % 1000 < perMille)
                indices.push_back(i);
    }
    return indices;
}

/// Made once for all measures and repetitions; no measure leaves it otherwise than it was.
template <typename Set>
Set& Sample(std::size_t size, unsigned int perMille) {
    static std::map<std::pair<std::size_t, unsigned int>, std::unique_ptr<Set>> known;
    std::unique_ptr<Set>& set = known[{size, perMille}];
    if (set == nullptr) {
        set = std::make_unique<Set>(size);
        for (const std::size_t i : Indices(size, perMille))
            set->Put(i);
    }
    return *set;
}

template <typename Set>
std::size_t SumOfIndices(const Set& set) {
    std::size_t sum = 0;
    for (std::size_t i = set.First(); !set.Ended(i); i = set.Next(i))
        sum += i;
    return sum;
}

template <typename Set>
void Expect(Set& set, std::size_t count, std::size_t sum) {
    if (set.Count() != count || SumOfIndices(set) != sum)
        std::abort();
}

/// Stops the row if the operations that the set has do not give what they should.
template <typename Set>
void Check() {
    for (const unsigned int perMille : {Few, Half, Every}) {
        const std::vector<std::size_t>& indices = Indices(Sizes[0], perMille);
        std::size_t sum = 0;
        for (const std::size_t i : indices)
            sum += i;
        Set& set = Sample<Set>(Sizes[0], perMille);
        Expect(set, indices.size(), sum);
        if constexpr (requires { set.Rank(0); })
            if (set.Rank(indices.back()) != indices.size() - 1)
                std::abort();
        if constexpr (requires { set.And(set); }) {
            Set other(Sizes[0]);
            other.Or(set);
            Expect(other, indices.size(), sum);
            other.Put(indices.back() / 2);
            other.And(set);
            Expect(other, indices.size(), sum);
            std::stringstream stored;
            set.Save(stored);
            Set restored(Sizes[0]);
            restored.Restore(stored);
            Expect(restored, indices.size(), sum);
        }
    }
}

template <typename Set>
void Counting(const char* contender) {
    for (const std::size_t size : Sizes) {
        contest::Contend({"count after a change", size}, contender, [=](benchmark::State& state) {
            Set& set = Sample<Set>(size, Half);
            for (auto _ : state) {
                set.Put(0);
                benchmark::DoNotOptimize(set.Count());
            }
        });
        if constexpr (requires(Set set) { set.Rank(0); })
            contest::Contend({"rank of the last", size}, contender, [=](benchmark::State& state) {
                const Set& set = Sample<Set>(size, Half);
                for (auto _ : state)
                    benchmark::DoNotOptimize(set.Rank(size - 1));
            });
    }
}

template <typename Set>
void Walking(const char* contender) {
    for (const auto& [name, perMille] :
         {std::pair{"next, 1 in 1000 on", Few}, {"next, half on", Half}, {"next, all on", Every}})
        for (const std::size_t size : Sizes)
            contest::Contend({name, size}, contender,
                             [size, perMille = perMille](benchmark::State& state) {
                                 const Set& set = Sample<Set>(size, perMille);
                                 for (auto _ : state)
                                     benchmark::DoNotOptimize(SumOfIndices(set));
                             });
}

template <typename Set>
void Combining(const char* contender) {
    const auto combine = [=](const char* name, auto operation) {
        for (const std::size_t size : Sizes)
            contest::Contend({name, size}, contender, [=](benchmark::State& state) {
                Set set(size);
                const Set& other = Sample<Set>(size, Half);
                for (auto _ : state) {
                    operation(set, other);
                    benchmark::ClobberMemory();
                }
            });
    };
    combine("and", [](Set& set, const Set& other) { set.And(other); });
    combine("or", [](Set& set, const Set& other) { set.Or(other); });
}

template <typename Set>
void Storing(const char* contender) {
    for (const auto& [name, perMille] :
         {std::pair{"1 in 1000 on", Few}, {"half on", Half}, {"all on", Every}}) {
        contest::Contend({std::string("save, ") + name}, contender,
                         [perMille = perMille](benchmark::State& state) {
                             std::ostringstream out;
                             Set& set = Sample<Set>(StoredBits, perMille);
                             for (auto _ : state) {
                                 out.seekp(0);
                                 set.Save(out);
                             }
                         });
        contest::Contend({std::string("restore, ") + name}, contender,
                         [perMille = perMille](benchmark::State& state) {
                             std::stringstream stored;
                             Sample<Set>(StoredBits, perMille).Save(stored);
                             Set set(StoredBits);
                             for (auto _ : state) {
                                 stored.clear();
                                 stored.seekg(0);
                                 set.Restore(stored);
                             }
                         });
    }
}

template <typename Set>
void All(const char* contender) {
    Check<Set>();
    Counting<Set>(contender);
    Walking<Set>(contender);
    if constexpr (!std::is_same_v<Set, Standard>) {
        Combining<Set>(contender);
        Storing<Set>(contender);
    }
}

} // namespace

void Contestants() {
    All<Ours>(contest::Plinth);
    All<Standard>("std::vector<bool>");
    All<Boost>("boost::dynamic_bitset");
    All<Words>(contest::PlainCode);
}
