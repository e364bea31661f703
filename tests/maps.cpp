// SPDX-License-Identifier: MIT
#include <dsortmap.h>
#include <dsunique.h>

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/failnew.h"
#include "tests/watched.h"

namespace {

void* Key(std::uintptr_t word) {
    return reinterpret_cast<void*>(word);
}

using Entry = dsSortedMapEntry<int, void*>;

using Entries = Watched<Entry>;

/// A map that counts the keys that it was given to own, and how often a value was copied.
template <typename Base, typename K>
class Counting : public Base {
public:
    using Base::IsConsistent;
    void CopyElems(const int* source, int* target, unsigned int count) const override {
        valuesCopied += count, Base::CopyElems(source, target, count);
    }
    mutable unsigned int keysOwned = 0, valuesCopied = 0;

protected:
    K CopyKey(K key) const override { return ++keysOwned, key; }
    void FreeKey(K) const override { --keysOwned; }
};
using Map = Counting<dsBaseScalarMap<Entries, int, void*>, void*>;
using TextMap = Counting<dsNonOwnerStringMap<int>, const char*>;

/// The values in order, by an iterator and one that is reproduced where that one stands.
std::vector<int> Values(const dsDataCollection<int>& map) {
    std::vector<int> values;
    for (std::unique_ptr<dsBaseIter<int>> i(map.GetIter()); !i->Finished(); i->MoveToNext()) {
        std::unique_ptr<dsBaseIter<int>> same(i->Reproduce());
        i->SetAtFirst();
        i.swap(same);
        values.push_back(i->Current());
    }
    return values;
}

/// `key` gives the keys by their place in the order of all hundred.
template <typename AMap, typename Exact, typename Key>
void CompareWithAModel(Key key) {
    std::mt19937 random(12);
    AMap map;
    Exact same; // of no class of ours: searched without a call for each comparison
    std::map<unsigned int, int> model;
    for (int step = 0; step < 10000; ++step) {
        const auto place = static_cast<unsigned int>(random() % 100);
        const auto at = model.lower_bound(place);
        const bool there = at != model.end() && at->first == place;
        unsigned int index = 99999;
        int value = -1;
        ASSERT_EQ(map.FindIndex(key(place), index), there);
        ASSERT_EQ(index, std::distance(model.begin(), at));
        ASSERT_EQ(same.FindIndex(key(place), index), there);
        ASSERT_EQ(index, std::distance(model.begin(), at));
        ASSERT_EQ(map.Contains(key(place)), there);
        ASSERT_EQ(map.Find(key(place), value), there);
        ASSERT_EQ(value, there ? at->second : -1);
        if (random() % 2 == 0) {
            ASSERT_EQ(map.Add(key(place), step), !there);
            ASSERT_EQ(same.Add(key(place), step), !there);
            model.emplace(place, step);
        } else if (there && random() % 4 == 0) {
            map[key(place)] += 1;
            ASSERT_EQ(map.GetByIndex(index), ++at->second);
            same[key(place)] += 1;
        } else {
            ASSERT_EQ(map.Remove(key(place)), there);
            ASSERT_EQ(same.Remove(key(place)), there);
            model.erase(place);
        }
        std::vector<int> values;
        for (const auto& entry : model)
            values.push_back(entry.second);
        ASSERT_TRUE(map.IsConsistent());
        ASSERT_EQ(Values(map), values) << "step " << step;
        ASSERT_EQ(Values(same), values);
        ASSERT_EQ(map.keysOwned, model.size());
    }
}

TEST(Map, BehavesLikeAStandardMapInBothOrders) {
    // Keys from both halves of the address space: the order is unsigned.
    CompareWithAModel<Map, dsScalarMap<int, void*>>(
        [](std::uintptr_t place) { return Key(place << (sizeof place * 8 - 7)); });
    // Null, the empty text, and texts that begin with each other, of bytes from both halves.
    std::deque<std::string> texts; // each time another copy
    CompareWithAModel<TextMap, dsNonOwnerStringMap<int>>([&](unsigned int place) {
        const auto byte = static_cast<char>(1 + place / 10 * 28);
        texts.emplace_back(place == 1 ? 0 : 1 + place % 10, byte);
        return place == 0 ? nullptr : texts.back().c_str();
    });
}

TEST(Map, MovesItsEntriesAsBlocks) {
    const unsigned int block = sizeof(void*) == 4 ? 32 : 16;
    const std::string all = std::to_string(block), twice = std::to_string(2 * block);
    Map map;
    Entries::Take();
    EXPECT_TRUE(map.Add(Key(1), 1));
    EXPECT_EQ(Entries::Take(), "alloc " + all + ";copy 0;copy 1;");
    for (unsigned int i = 2; i <= block; ++i)
        EXPECT_TRUE(map.Add(Key(i), 1));
    EXPECT_EQ(Entries::Take().find("alloc"), std::string::npos);
    Entries::exhausted = true; // an entry that finds no room leaves the map as it was
    EXPECT_THROW(map.Add(Key(0), 1), std::bad_alloc);
    Entries::exhausted = false;
    EXPECT_TRUE(map.keysOwned == block && map.GetSize() == block);
    EXPECT_TRUE(map.Add(Key(0), 1) && map.Remove(Key(block)) && map.Remove(Key(0)));
    EXPECT_EQ(Entries::Take(), "realloc " + twice + ";copy " + all + ";copy 1;copy 0;copy " +
                                   std::to_string(block - 1) + ";");
    map.Clear();
    map.valuesCopied = 0;
    int value = 0;
    EXPECT_TRUE(map.IsEmpty() && map.Add(Key(5), 1));
    EXPECT_TRUE(map.Find(Key(5), value) && !map.Add(Key(5), 2));
    EXPECT_EQ(Entries::Take(), "copy 0;copy 1;");
    EXPECT_EQ(map.valuesCopied, 2u);
}

TEST(MapDeathTest, AnAbsentKeyHasNoReference) {
    Map map;
    EXPECT_DEATH(map[Key(2)], "^dsSortedMap::operator \\[\\] failed \\(dsortmap:169\\)");
    const auto comeBack = [](const char*, const char*, int) { std::fputs("came back", stderr); };
    EXPECT_DEATH((zelSetAbortHandler(comeBack), map[Key(2)]), "^came back$");
}

const dsUniqueString madeAtLoad("made at load");

TEST(UniqueString, SharesOneCopyOfEachText) {
    std::string buffer = "made at load";
    const dsUniqueString same(buffer.c_str()), upper("MADE AT LOAD"), null(nullptr), empty("");
    buffer = "overwritten!";
    EXPECT_TRUE(same == madeAtLoad && same != upper && null == empty);
    EXPECT_EQ(same.GiveString(), madeAtLoad.GiveString());
    EXPECT_STREQ(same, "made at load");
    EXPECT_EQ(same.GetLength(), 12u);
    EXPECT_TRUE(null.IsEmpty());
}

/// Every other text has the hash of all the others: bits on top that differ cancel each other out.
std::string Name(unsigned long number) {
    if (number % 2 == 0)
        return std::to_string(number);
    std::string text(16 * 8, 'a');
    for (std::size_t i = 0; i < 8; ++i)
        for (const std::size_t byte : {7U, 11U, 15U})
            text[16 * i + byte] = (number / 2) >> i & 1 ? '\xE1' : 'a';
    return text;
}

TEST(UniqueString, CellsLiveAsLongAsTheyAreReferredTo) {
    std::mt19937 random(14);
    std::map<std::string, std::vector<dsStringCell*>> model; // one pointer for each reference
    for (unsigned int step = 0; step < 40000; ++step) {
        failnew::after = step < 5000 ? 0 : -1;     // names are found without help as well
        const bool coming = step / 10000 % 2 == 0; // and then all references are taken back
        const std::string text = Name((coming ? random() : step) % 400);
        std::vector<dsStringCell*>& holders = model[text];
        dsStringCell* cell = holders.empty() ? nullptr : holders.back();
        if (coming && random() % 2 == 0) {
            if (cell != nullptr && random() % 2 == 0)
                cell->Lock();
            else
                dsStringCell::AddToDatabase(text.c_str(), cell);
            holders.push_back(cell);
            ASSERT_EQ(cell, holders.front());
            ASSERT_STREQ(cell->GetString(), text.c_str());
        } else if (cell != nullptr) {
            holders.pop_back();
            dsStringCell::Release(cell);
            ASSERT_EQ(cell, holders.empty() ? nullptr : holders.front());
        }
    }
}

} // namespace
