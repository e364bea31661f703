// SPDX-License-Identifier: MIT
#include "tests/watched.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

std::string Bytes(const dsXArray<char>& array) {
    return {array.GetDataPtr(), array.GetDataPtr() + array.GetSize()};
}

TEST(Array, AllocatesWholeBlocksAndOnlyWhenItMust) {
    using Steps = std::vector<std::pair<unsigned int, std::string>>;
    const auto run = [](auto&& array, const Steps& steps) {
        for (const auto& [size, calls] : steps) {
            array.Resize(size);
            EXPECT_EQ(array.Take(), calls) << "Resize to " << size;
            EXPECT_EQ(array.GetSize(), size);
            EXPECT_TRUE(array.IsConsistent());
        }
    };
    const unsigned int block = sizeof(char*) == 4 ? 64 : 32;
    const std::string one = std::to_string(block), two = std::to_string(2 * block);
    const dsXACtrl shrinking(16, true), byDefault(0, true);
    run(Watched<char>(), {{0, ""}, {1, "alloc 256;"}, {256, ""}, {257, "realloc 512;"}});
    run(Watched<char>(), {{1000, "alloc 1024;"}, {0, ""}, {1024, ""}, {3, ""}});
    run(Watched<char*>(), {{block, "alloc " + one + ";"}, {block + 1, "realloc " + two + ";"}});
    run(Watched<char>(&shrinking), {{0, ""}, {1, "alloc 16;"}, {16, ""}, {1, ""}});
    run(Watched<char>(&shrinking), {{17, "alloc 32;"}, {16, "realloc 16;"}, {0, "realloc 0;"}});
    run(Watched<char>(&shrinking), {{1, "alloc 16;"}, {0, "realloc 0;"}, {5, "alloc 16;"}});
    run(Watched<char>(&byDefault), {{300, "alloc 512;"}, {9, "realloc 256;"}});
}

TEST(Array, MovesElementsThroughItsPolicy) {
    Watched<char> array;
    EXPECT_EQ(array.GetDataPtr(), nullptr);
    array.Append(3, "abc");
    EXPECT_EQ(array.Take(), "alloc 256;copy 0;copy 3;");
    array.Insert(1, 'x');
    array += 'y';
    EXPECT_EQ(array.Take(), "copy 2;copy 1;copy 0;copy 1;");
    EXPECT_EQ(Bytes(array), "axbcy");
    array.RemoveAt(1, 3, nullptr);
    array.Insert(0, 0, nullptr);
    EXPECT_EQ(array.Take(), "copy 1;copy 2;copy 0;");
    array.Clear();
    EXPECT_TRUE(array.IsEmpty());
    array.Resize(256);
    EXPECT_EQ(array.Take(), "");
}

TEST(Array, BehavesLikeAString) {
    std::mt19937 random(20);
    for (const dsXACtrl& policy : {dsXACtrl(0, false), dsXACtrl(16, true), dsXACtrl(7, true)}) {
        Watched<char> array(&policy);
        dsXArray<char> plain(&policy); // has no policy of its own, and appends in place
        std::string model, appended;
        for (int step = 0; step < 4000; ++step) {
            const auto pos = static_cast<unsigned int>(random() % (model.size() + 1));
            const auto rest = static_cast<unsigned int>(random() % (model.size() - pos + 1));
            const std::string text(random() % 40, static_cast<char>(step));
            if (random() % 4 == 0) {
                std::string removed(rest, '\0');
                array.RemoveAt(pos, rest, removed.data());
                ASSERT_EQ(removed, model.substr(pos, rest));
                model.erase(pos, rest);
            } else {
                array.Insert(pos, static_cast<unsigned int>(text.size()), text.data());
                model.insert(pos, text);
            }
            if (step % 64 == 0)
                plain.Clear(), appended.clear();
            plain.Append(static_cast<unsigned int>(text.size()), text.data());
            plain += 'c';
            ASSERT_EQ(Bytes(plain), appended += text + 'c') << "step " << step;
            ASSERT_TRUE(array.IsConsistent()) << "step " << step;
            ASSERT_EQ(Bytes(array), model) << "step " << step;
        }
    }
}

TEST(Array, RefusesSizesThatCannotBeCountedAndStaysAsItWas) {
    Watched<char> bytes;
    bytes.Append(3, "abc");
    const dsXACtrl halfOfAll(0x80000001u, false);
    Watched<char*> pointers(&halfOfAll);
    EXPECT_THROW(bytes.Resize(UINT_MAX), std::bad_alloc);
    EXPECT_THROW(bytes.Insert(1, UINT_MAX - 2, nullptr), std::bad_alloc);
    // One block is more than 32 bits can address, two are more than they can count.
    EXPECT_THROW(pointers.Resize(sizeof(void*) == 4 ? 1 : 0x80000002u), std::bad_alloc);
    EXPECT_EQ(Bytes(bytes), "abc");
    EXPECT_TRUE(bytes.IsConsistent() && pointers.IsConsistent() && pointers.IsEmpty());
}

TEST(Array, IteratorsGoByIndex) {
    Watched<char> array;
    const std::unique_ptr<dsBaseIter<char>> first(array.GetIter());
    EXPECT_TRUE(first->Finished() && !array.Contains(0));
    array.Append(3, "abc");
    EXPECT_TRUE(array.Contains(2) && !array.Contains(3));
    first->MoveToNext();
    const std::unique_ptr<dsBaseIter<char>> second(first->Reproduce());
    second->MoveToNext();
    array.Resize(4000); // the elements move; the iterators follow
    second->Current() = 'C';
    EXPECT_TRUE(first->Current() == 'b' && array[2] == 'C');
    array.Resize(2);
    EXPECT_TRUE(second->Finished() && !first->Finished());
    second->SetAtFirst();
    EXPECT_EQ(second->Current(), 'a');
}

TEST(ArrayDeathTest, KeyedCallsAreFatalReports) {
    dsXArray<char> array(nullptr);
    char value = 'v';
    EXPECT_DEATH(array.Add(0, 'b'), "^dsDataMap::Add \\(\\) \\(dsdatcol:299\\)");
    EXPECT_DEATH(array.Remove(0), "^dsDataMap::Remove \\(\\) \\(dsdatcol:303\\)");
    EXPECT_DEATH(array.Find(0, value), "^dsDataMap::Find \\(\\) \\(dsdatcol:307\\)");
    zelSetAbortHandler([](const char*, const char*, int) {});
    EXPECT_FALSE(array.Add(0, 'b') || array.Remove(0) || array.Find(0, value));
    zelSetAbortHandler(nullptr);
}

} // namespace
