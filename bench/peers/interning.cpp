// SPDX-License-Identifier: MIT
#include <dsunique.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/flyweight.hpp>
#include <boost/flyweight/no_locking.hpp>
#include <glib.h>

#include "contest.h"

namespace {

constexpr std::size_t Sizes[] = {100, 1000, 10'000, 100'000};
/// Rounds of a measure that makes a new name in each.
constexpr std::size_t Rounds = 3000;

/// Names as a program has them, in random order.
std::vector<std::string> Names(std::size_t count, const std::string& kind) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < count; ++i)
        names.push_back("assembly/part_" + std::to_string(i) + '.' + kind);
    std::shuffle(names.begin(), names.end(), std::mt19937(1));
    return names;
}

/// Each of them many times, without an order that the processor could learn by heart.
std::vector<const char*> AtRandom(const std::vector<std::string>& texts) {
    std::mt19937 random(1);
    std::vector<const char*> asked;
    for (int i = 0; i < 1 << 18; ++i)
        asked.push_back(texts[random() % texts.size()].c_str());
    return asked;
}

// A name of each contender is made of a text, holds it for as long as it is there, and compares.

struct Ours : dsUniqueString {
    using dsUniqueString::dsUniqueString;
    const char* Text() const { return GiveString(); }
};

template <typename Flyweight>
struct Boost {
    explicit Boost(const char* text) : name(text) {}
    bool operator==(const Boost& other) const { return name == other.name; }
    const char* Text() const { return name.get().c_str(); }
    Flyweight name;
};
using Locking = boost::flyweight<std::string>;
using NoLocking = boost::flyweight<std::string, boost::flyweights::no_locking>;

/// Never forgets a name.
struct Glib {
    explicit Glib(const char* name) : text(g_intern_string(name)) {}
    bool operator==(const Glib& other) const { return text == other.text; }
    const char* Text() const { return text; }
    const char* text;
};

/// A hash table, and a count beside each text.
struct Counted {
    using Table = std::unordered_map<std::string, int>;
    static inline Table table;
    explicit Counted(const char* name) : entry(&*table.try_emplace(name).first) { ++entry->second; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() {
        if (--entry->second == 0)
            table.erase(entry->first);
    }
    bool operator==(const Counted& other) const { return entry == other.entry; }
    const char* Text() const { return entry->first.c_str(); }
    Table::value_type* entry;
};

/// Holds names, in order, and lets them go from the last to the first.
template <typename Name>
struct Held {
    explicit Held(std::vector<std::string> texts) {
        std::sort(texts.begin(), texts.end());
        for (const std::string& text : texts)
            names.emplace_back(text.c_str());
    }
    ~Held() {
        while (!names.empty())
            names.pop_back();
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    std::deque<Name> names;
};

/// Stops the row if names of one text are not one, or those of two texts are.
template <typename Name>
void Check() {
    const std::vector<std::string> texts = Names(1000, "check");
    const Held<Name> held(texts);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const Name name(texts[i].c_str());
        if (std::count(held.names.begin(), held.names.end(), name) != 1 || name.Text() != texts[i])
            std::abort();
    }
}

template <typename Name>
void All(const char* contender) {
    Check<Name>();
    for (const std::size_t size : Sizes) {
        contest::Contend({"existing name", size}, contender, [=](benchmark::State& state) {
            const std::vector<std::string> texts = Names(size, "held");
            const Held<Name> held(texts);
            const std::vector<const char*> asked = AtRandom(texts);
            std::size_t i = 0;
            for (auto _ : state) {
                const Name name(asked[i++ % asked.size()]);
                benchmark::DoNotOptimize(name.Text());
            }
        });
        contest::Contend({"new name", size}, contender, [=](benchmark::State& state) {
            static int kinds = 0; // no name comes twice: a contender may still know it
            const std::vector<std::string> texts = Names(Rounds, std::to_string(++kinds));
            const Held<Name> held(Names(size, "held"));
            std::size_t i = 0;
            for (auto _ : state) {
                const Name name(texts[i++].c_str());
                benchmark::DoNotOptimize(name.Text());
            }
        })->Iterations(Rounds);
    }
    contest::Contend({"compare 1000 names"}, contender, [](benchmark::State& state) {
        const Held<Name> held(Names(1000, "held"));
        const Name& sought = held.names[500];
        for (auto _ : state)
            benchmark::DoNotOptimize(std::count(held.names.begin(), held.names.end(), sought));
    });
}

} // namespace

void Contestants() {
    All<Ours>(contest::Plinth);
    All<Boost<Locking>>("boost::flyweight");
    All<Boost<NoLocking>>("boost::flyweight (no lock)");
    All<Glib>("g_intern_string");
    All<Counted>(contest::PlainCode);
}
