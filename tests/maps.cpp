// SPDX-License-Identifier: MIT
#include <dsortmap.h>
#include <dsunique.h>

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

namespace {

void* Key(std::uintptr_t word) {
    return reinterpret_cast<void*>(word);
}

using Entry = dsSortedMapEntry<int, void*>;
using Calls = std::vector<std::string>;

/// The entries of a map, which record what is asked of their policy and can run out of memory.
class Entries : public dsXArray<Entry> {
public:
    explicit Entries(const dsXACtrl* control) : dsXArray<Entry>(control) {}
    Entry* AllocElems(unsigned int count) const override {
        return Note("alloc", count), dsXArray<Entry>::AllocElems(count);
    }
    Entry* ReallocElems(Entry* elems, unsigned int used, unsigned int count) const override {
        return Note("realloc", count), dsXArray<Entry>::ReallocElems(elems, used, count);
    }
    void CopyElems(const Entry* source, Entry* target, unsigned int count) const override {
        Note("copy", count);
        dsXArray<Entry>::CopyElems(source, target, count);
    }
    static Calls Take() { return std::exchange(calls, {}); }
    static inline bool exhausted = false;

private:
    static void Note(const char* what, unsigned int count) {
        if (exhausted)
            throw std::bad_alloc();
        calls.push_back(what + (" " + std::to_string(count)));
    }
    static inline Calls calls;
};

/// A map that counts the keys that it was given to own, and how often a value was copied.
class Map : public dsBaseScalarMap<Entries, int, void*> {
public:
    using dsBaseScalarMap<Entries, int, void*>::IsConsistent;
    void CopyElems(const int* source, int* target, unsigned int count) const override {
        valuesCopied += count;
        dsBaseScalarMap<Entries, int, void*>::CopyElems(source, target, count);
    }
    mutable unsigned int keysOwned = 0, valuesCopied = 0;

protected:
    void* CopyKey(void* key) const override { return ++keysOwned, key; }
    void FreeKey(void*) const override { --keysOwned; }
};

template <typename T>
std::vector<T> Values(const dsDataCollection<T>& map) {
    std::vector<T> values;
    for (std::unique_ptr<dsBaseIter<T>> i(map.GetIter()); !i->Finished(); i->MoveToNext())
        values.push_back(i->Current());
    return values;
}

TEST(Map, BehavesLikeAStandardMap) {
    std::mt19937 random(12);
    Map map;
    std::map<std::uintptr_t, int> model;
    for (int step = 0; step < 20000; ++step) {
        // Keys from both halves of the address space: the order is unsigned.
        const std::uintptr_t word = (random() % 100) << (sizeof(word) * 8 - 7);
        const auto at = model.lower_bound(word);
        const bool there = at != model.end() && at->first == word;
        const auto place = static_cast<unsigned int>(std::distance(model.begin(), at));
        unsigned int index = 99999;
        int value = -1;
        ASSERT_EQ(map.FindIndex(Key(word), index), there);
        ASSERT_EQ(index, place);
        ASSERT_EQ(map.Contains(Key(word)), there);
        ASSERT_EQ(map.Find(Key(word), value), there);
        ASSERT_EQ(value, there ? at->second : -1);
        switch (random() % 8) {
        case 0:
        case 1:
        case 2:
        case 3:
            ASSERT_EQ(map.Add(Key(word), step), !there);
            model.emplace(word, step);
            break;
        case 4:
        case 5:
            ASSERT_EQ(map.Remove(Key(word)), there);
            model.erase(word);
            break;
        case 6:
            if (there) {
                map[Key(word)] += 1;
                ASSERT_EQ(map.GetByIndex(index), ++at->second);
            }
            break;
        default:
            if (random() % 200 == 0) {
                map.Clear();
                model.clear();
                map.keysOwned = 0; // Clear gives no key back
            } else if (there) {
                map.RemoveByIndex(index);
                model.erase(at);
            }
        }
        std::vector<int> values;
        for (const auto& entry : model)
            values.push_back(entry.second);
        ASSERT_TRUE(map.IsConsistent());
        ASSERT_EQ(Values(map), values) << "step " << step;
        ASSERT_EQ(map.keysOwned, model.size());
        ASSERT_EQ(map.IsEmpty(), model.empty());
    }
}

TEST(Map, MovesItsEntriesAsBlocks) {
    const unsigned int block = 256 / sizeof(Entry);
    Entries::Take();
    Map map;
    EXPECT_EQ(Entries::Take(), Calls{});
    EXPECT_TRUE(map.Add(Key(1), 1));
    EXPECT_EQ(Entries::Take(), (Calls{"alloc " + std::to_string(block), "copy 0", "copy 1"}));
    for (unsigned int i = 2; i <= block; ++i)
        EXPECT_TRUE(map.Add(Key(i), 1));
    Entries::Take();
    Entries::exhausted = true; // an entry that finds no room leaves the map as it was
    EXPECT_THROW(map.Add(Key(0), 1), std::bad_alloc);
    Entries::exhausted = false;
    EXPECT_EQ(map.keysOwned, block);
    EXPECT_EQ(map.GetSize(), block);

    EXPECT_TRUE(map.Add(Key(0), 1));
    EXPECT_EQ(Entries::Take(), (Calls{"realloc " + std::to_string(2 * block),
                                      "copy " + std::to_string(block), "copy 1"}));
    EXPECT_TRUE(map.Remove(Key(block)));
    EXPECT_TRUE(map.Remove(Key(0)));
    EXPECT_EQ(Entries::Take(), (Calls{"copy 0", "copy " + std::to_string(block - 1)}));
    map.Clear();
    EXPECT_TRUE(map.Add(Key(5), 1));
    EXPECT_EQ(Entries::Take(), (Calls{"copy 0", "copy 1"}));
    map.valuesCopied = 0;
    int value = 0;
    EXPECT_TRUE(map.Find(Key(5), value) && !map.Add(Key(5), 2) && map.Add(Key(6), 3));
    EXPECT_EQ(map.valuesCopied, 2u);
}

TEST(Map, OrdersTextsByTheirBytes) {
    const std::string again = "Abc";
    const char* const inOrder[] = {nullptr,
                                   "",
                                   "A",
                                   "Ab",
                                   "Abc",
                                   "B",
                                   "a",
                                   "\xe9",
                                   "\xe9"
                                   "a"};
    dsNonOwnerStringMap<int> map;
    for (int i : {3, 0, 8, 1, 4, 2, 7, 5, 6})
        EXPECT_TRUE(map.Add(inOrder[i], i));
    EXPECT_EQ(Values(map), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_FALSE(map.Add(nullptr, 9) || map.Add(again.c_str(), 9));
    EXPECT_EQ(map[again.c_str()], 4);
    unsigned int index = 0;
    EXPECT_FALSE(map.FindIndex("\xff", index));
    EXPECT_EQ(index, map.GetSize());
}

TEST(Map, IteratorsAreReproducedWhereTheyStand) {
    dsScalarMap<int, unsigned int> map;
    std::unique_ptr<dsBaseIter<int>> none(map.GetIter());
    EXPECT_TRUE(none->Finished());
    for (unsigned int key : {3u, 1u, 2u})
        map.Add(key, static_cast<int>(key));
    std::unique_ptr<dsBaseIter<int>> first(map.GetIter());
    first->MoveToNext();
    std::unique_ptr<dsBaseIter<int>> second(first->Reproduce());
    first->MoveToNext();
    EXPECT_EQ(first->Current(), 3);
    EXPECT_EQ(second->Current(), 2);
    first->SetAtFirst();
    EXPECT_EQ(first->Current(), 1);
}

TEST(MapDeathTest, AnAbsentKeyHasNoReference) {
    Map map;
    map.Add(Key(1), 1);
    const char* const report = "^dsSortedMap::operator \\[\\] failed \\(dsortmap:169\\)";
    EXPECT_DEATH(map[Key(2)], report);
    const auto comeBack = [](const char*, const char*, int) { std::fputs("came back", stderr); };
    EXPECT_DEATH((zelSetAbortHandler(comeBack), map[Key(2)]), "^came back$");
}

dsUniqueString madeAtLoad("made at load");

TEST(UniqueString, SharesOneCopyOfEachText) {
    auto buffer = std::make_unique<std::string>("made at load");
    const dsUniqueString same(buffer->c_str());
    *buffer = "overwritten.";
    buffer.reset();
    EXPECT_TRUE(same == madeAtLoad);
    EXPECT_EQ(same.GiveString(), madeAtLoad.GiveString());
    EXPECT_STREQ(same, "made at load");
    EXPECT_EQ(same.GetLength(), 12u);

    const dsUniqueString lower("a"), upper("A"), null(nullptr), empty("");
    EXPECT_TRUE(lower != upper);
    EXPECT_TRUE(null == empty);
    EXPECT_TRUE(null.IsEmpty());
}

TEST(UniqueString, CellsLiveAsLongAsTheyAreReferredTo) {
    std::mt19937 random(14);
    std::map<std::string, std::vector<dsStringCell*>> model; // one pointer for each reference
    for (int step = 0; step < 20000; ++step) {
        const std::string text = std::to_string(random() % 50);
        std::vector<dsStringCell*>& holders = model[text];
        dsStringCell* cell = nullptr;
        if (random() % 2 == 0) {
            if (holders.empty() || random() % 2 == 0)
                dsStringCell::AddToDatabase(text.c_str(), cell);
            else
                (cell = holders.front())->Lock();
            holders.push_back(cell);
            ASSERT_EQ(cell, holders.front());
            ASSERT_STREQ(cell->GetString(), text.c_str());
        } else if (!holders.empty()) {
            cell = holders.back();
            holders.pop_back();
            dsStringCell::Release(cell);
            ASSERT_EQ(cell, holders.empty() ? nullptr : holders.front());
        }
    }
    for (auto& [text, holders] : model)
        for (dsStringCell*& cell : holders)
            dsStringCell::Release(cell);
}

} // namespace
