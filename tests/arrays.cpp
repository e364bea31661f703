// SPDX-License-Identifier: MIT
#include <dsdatcol.h>

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

namespace {

/// An array that records what is asked of its policy and shows its own check.
template <typename T>
class Watched : public dsXArray<T> {
public:
    explicit Watched(const dsXACtrl* control = nullptr) : dsXArray<T>(control) {}
    using dsXArray<T>::IsConsistent;

    T* AllocElems(unsigned int count) const override {
        calls.push_back("alloc " + std::to_string(count));
        return dsXArray<T>::AllocElems(count);
    }
    T* ReallocElems(T* elems, unsigned int used, unsigned int newCount) const override {
        calls.push_back("realloc " + std::to_string(used) + " " + std::to_string(newCount));
        return dsXArray<T>::ReallocElems(elems, used, newCount);
    }
    void CopyElems(const T* source, T* target, unsigned int count) const override {
        calls.push_back("copy " + std::to_string(count));
        dsXArray<T>::CopyElems(source, target, count);
    }
    std::vector<std::string> Take() const { return std::exchange(calls, {}); }

private:
    mutable std::vector<std::string> calls;
};

using Calls = std::vector<std::string>;

template <typename T>
std::vector<T> Elements(const dsXArray<T>& array) {
    return {array.GetDataPtr(), array.GetDataPtr() + array.GetSize()};
}

TEST(Array, AllocatesWholeBlocksAndOnlyWhenItMust) {
    struct Step {
        unsigned int size;
        Calls calls;
    };
    const unsigned int block = 256 / sizeof(char*);
    const dsXACtrl shrinking(16, true), shrinkingByDefaultBlock(0, true);
    const auto run = [](auto&& array, const std::vector<Step>& steps) {
        for (const Step& step : steps) {
            array.Resize(step.size);
            EXPECT_EQ(array.Take(), step.calls) << "Resize to " << step.size;
            EXPECT_EQ(array.GetSize(), step.size);
            EXPECT_EQ(array.IsEmpty(), step.size == 0);
            EXPECT_TRUE(array.IsConsistent());
        }
    };
    run(Watched<char>(), {{0, {}}, {1, {"alloc 256"}}, {256, {}}, {257, {"realloc 256 512"}}});
    run(Watched<char>(), {{1000, {"alloc 1024"}}, {0, {}}, {1024, {}}, {3, {}}});
    run(Watched<char*>(),
        {{block, {"alloc " + std::to_string(block)}},
         {block + 1, {"realloc " + std::to_string(block) + " " + std::to_string(2 * block)}}});
    run(Watched<char>(&shrinking), {{0, {}},
                                    {1, {"alloc 16"}},
                                    {16, {}},
                                    {1, {}},
                                    {17, {"realloc 1 32"}},
                                    {16, {"realloc 17 16"}},
                                    {0, {"realloc 16 0"}},
                                    {0, {}},
                                    {5, {"alloc 16"}}});
    run(Watched<char>(&shrinkingByDefaultBlock), {{300, {"alloc 512"}}, {9, {"realloc 300 256"}}});
}

TEST(Array, MovesElementsThroughItsPolicy) {
    Watched<char> array;
    EXPECT_EQ(array.GetDataPtr(), nullptr);
    array.Append(3, "abc");
    EXPECT_EQ(array.Take(), (Calls{"alloc 256", "copy 0", "copy 3"}));
    array.Insert(1, 2, "xy");
    EXPECT_EQ(array.Take(), (Calls{"copy 2", "copy 2"}));
    char removed[5] = {};
    array.RemoveAt(0, 5, removed);
    EXPECT_EQ(array.Take(), (Calls{"copy 5", "copy 0"}));
    EXPECT_EQ(std::string(removed, 5), "axybc");
    array.Insert(0, 0, nullptr);
    EXPECT_TRUE(array.IsEmpty());
}

TEST(Array, BehavesLikeAVector) {
    std::mt19937 random(20);
    const dsXACtrl policies[] = {{0, false}, {16, true}, {7, false}, {1, true}};
    for (const dsXACtrl& policy : policies) {
        Watched<char> array(&policy);
        std::vector<char> model;
        for (int step = 0; step < 4000; ++step) {
            const auto below = [&](std::size_t n) {
                return static_cast<unsigned int>(random() % n);
            };
            const std::string text(below(40), static_cast<char>(random()));
            const unsigned int count = static_cast<unsigned int>(text.size());
            const unsigned int pos = below(model.size() + 1);
            const unsigned int rest = below(model.size() - pos + 1);
            const auto at = model.begin() + pos;
            std::vector<char> removed(rest);
            switch (random() % 32) {
            case 0:
                array.Clear();
                model.clear();
                break;
            case 1:
                array.Resize(pos);
                model.resize(pos);
                break;
            case 2:
                array += 'x';
                model.push_back('x');
                break;
            case 3:
                array.Insert(pos, text.c_str()[0]);
                model.insert(at, text.c_str()[0]);
                break;
            case 4:
                array.Append(count, text.data());
                model.insert(model.end(), text.begin(), text.end());
                break;
            case 5:
            case 6:
            case 7:
            case 8:
                array.RemoveAt(pos, rest, step % 2 != 0 ? removed.data() : nullptr);
                if (step % 2 != 0) {
                    ASSERT_EQ(removed, std::vector<char>(at, at + rest));
                }
                model.erase(at, at + rest);
                break;
            default:
                array.Insert(pos, count, text.data());
                model.insert(at, text.begin(), text.end());
            }
            ASSERT_TRUE(array.IsConsistent()) << "step " << step;
            ASSERT_EQ(Elements(array), model) << "step " << step;
        }
    }
}

TEST(Array, RefusesSizesThatCannotBeCountedAndStaysAsItWas) {
    Watched<char> bytes;
    bytes.Append(3, "abc");
    const dsXACtrl odd(0x80000001u, false);
    Watched<char*> pointers(&odd);
    EXPECT_THROW(bytes.Resize(UINT_MAX), std::bad_alloc);
    EXPECT_THROW(bytes.Insert(1, UINT_MAX - 2, nullptr), std::bad_alloc);
    EXPECT_THROW(pointers.Resize(0x80000002u), std::bad_alloc);
    if (sizeof(std::size_t) == 4) {
        EXPECT_THROW(pointers.Resize(1), std::bad_alloc);
    }
    EXPECT_EQ(Elements(bytes), (std::vector<char>{'a', 'b', 'c'}));
    EXPECT_TRUE(bytes.IsConsistent() && pointers.IsConsistent());
    EXPECT_TRUE(pointers.IsEmpty());
}

TEST(Array, IsReachedByIndexAndByIterator) {
    dsXArray<const char*> array(nullptr);
    const dsDataMap<const char*, unsigned int>& map = array;
    std::unique_ptr<dsBaseIter<const char*>> first(array.GetIter());
    EXPECT_TRUE(first->Finished());
    EXPECT_FALSE(map.Contains(0));
    for (const char* text : {"a", "b", "c", "d", "e"})
        array += text;
    EXPECT_TRUE(map.Contains(4));
    EXPECT_FALSE(map.Contains(5));
    for (int i = 0; i < 3; ++i)
        first->MoveToNext();
    std::unique_ptr<dsBaseIter<const char*>> second(first->Reproduce());
    second->MoveToNext();
    EXPECT_STREQ(first->Current(), "d");
    EXPECT_STREQ(second->Current(), "e");
    array.Resize(4000); // the elements move; the iterators follow
    second->Current() = "E";
    EXPECT_STREQ(map[4], "E");
    array.Resize(4);
    EXPECT_TRUE(second->Finished());
    EXPECT_FALSE(first->Finished());
    second->SetAtFirst();
    EXPECT_STREQ(second->Current(), "a");
}

TEST(ArrayDeathTest, KeyedCallsAreFatalReports) {
    dsXArray<char> array(nullptr);
    array += 'a';
    char value = 'v';
    EXPECT_DEATH(array.Add(0, 'b'), "^dsDataMap::Add \\(\\) \\(dsdatcol:299\\)");
    EXPECT_DEATH(array.Remove(0), "^dsDataMap::Remove \\(\\) \\(dsdatcol:303\\)");
    EXPECT_DEATH(array.Find(0, value), "^dsDataMap::Find \\(\\) \\(dsdatcol:307\\)");

    zelSetAbortHandler([](const char*, const char*, int) {});
    EXPECT_FALSE(array.Add(0, 'b') || array.Remove(0) || array.Find(0, value));
    zelSetAbortHandler(nullptr);
    EXPECT_EQ(value, 'v');
    EXPECT_EQ(array.GetSize(), 1u);
}

} // namespace
