// SPDX-License-Identifier: MIT
#include <dsbitset.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "failnew.h"
#include "vectors.h"

namespace {

using Model = std::vector<bool>;
constexpr unsigned long none = dsBitSet::none;

/// The bytes that a set of `size` bits stores, spare bits included.
std::string BytesOf(const dsBitSet& set, unsigned long size) {
    std::ostringstream saved;
    EXPECT_EQ(set.Save(saved), 1);
    const std::string packed = saved.str();
    const std::string count = std::to_string(size / 8 + 1);
    EXPECT_EQ(packed.substr(0, count.size()), count);
    std::string bytes;
    for (std::size_t i = count.size(); i < packed.size(); ++i)
        if (packed[i] != 0)
            bytes += packed[i];
        else
            bytes.append(static_cast<unsigned char>(packed.at(++i)), '\0');
    EXPECT_EQ(bytes.size(), size / 8 + 1);
    return bytes;
}

/// Compares everything that can be asked.
void ExpectSame(const dsBitSet& set, const Model& model) {
    const unsigned long size = model.size();
    std::vector<unsigned long> on;
    for (unsigned long i = 0; i < size; ++i)
        if (model[i])
            on.push_back(i);
    ASSERT_EQ(set.GetSize(), on.size());
    ASSERT_EQ(set.IsEmpty(), on.empty());
    ASSERT_EQ(set.First(), on.empty() ? none : on.front());
    ASSERT_EQ(set.Last(), on.empty() ? none : on.back());
    unsigned long rank = 0;
    for (unsigned long i = 0; i < size; ++i) {
        ASSERT_EQ(set.IsOn(i), model[i]) << i;
        ASSERT_EQ(set.GetIndex(i), rank) << i;
        ASSERT_EQ(set.Previous(i), rank == 0 ? none : on[rank - 1]) << i;
        rank += model[i];
        ASSERT_EQ(set.Next(i), rank == on.size() ? none : on[rank]) << i;
    }
    for (const unsigned long outside : {size, size + 1, size + 64, none}) {
        ASSERT_FALSE(set.IsOn(outside));
        ASSERT_EQ(set.GetIndex(outside), none);
        ASSERT_EQ(set.Next(outside), none);
        ASSERT_EQ(set.Previous(outside), none);
    }
    const std::unique_ptr<dsBaseIter<int>> walk(set.GetIter());
    walk->SetAtFirst();
    for (unsigned long k = 0; k < on.size(); ++k, walk->MoveToNext()) {
        ASSERT_EQ(set.ByIndex(k), on[k]);
        ASSERT_FALSE(walk->Finished());
        ASSERT_EQ(walk->Current(), static_cast<int>(on[k]));
    }
    ASSERT_TRUE(walk->Finished());
    ASSERT_EQ(set.ByIndex(on.size()), none);
    ASSERT_EQ(set.ByIndex(none), none);
    const std::string bytes = BytesOf(set, size);
    for (unsigned long i = 0; i < size; ++i)
        ASSERT_EQ((bytes[i / 8] >> (7 - i % 8) & 1) != 0, model[i]) << i;
}

/// One set and its model, and random operations on both.
class Pair {
public:
    Pair(unsigned long size, unsigned int seed) : set(size), model(size), random(seed) {}

    void Step() {
        const unsigned long size = model.size();
        switch (Below(14)) {
        case 0: // within the set mostly, and beyond its end
        case 1: {
            const unsigned long i = Below(size + 10);
            const bool on = Below(3) != 0;
            ASSERT_TRUE(on ? set.SetOn(i) : set.SetOff(i));
            model.resize(std::max(size, i + 1));
            model[i] = on;
            break;
        }
        case 2: {
            const unsigned long wanted = Below(4) == 0 ? Below(2 * size + 9) : size + Below(9) / 2;
            const unsigned long cut = std::min(wanted, Below(size + 1));
            ASSERT_TRUE(set.Resize(cut)); // what is cut off must not come back
            ASSERT_TRUE(set.Resize(wanted));
            model.resize(cut);
            model.resize(wanted);
            break;
        }
        case 3: {
            const unsigned long from = Below(size + 1);
            const unsigned long to = Below(size + 1);
            set.Fill(from, to);
            for (unsigned long i = from; i < (to == 0 ? size : to); ++i)
                model[i] = true;
            break;
        }
        case 4:
            set.Reverse();
            model.flip();
            break;
        case 5:
            if (Below(4) == 0) {
                set.Clear();
                model.assign(size, false);
            }
            break;
        case 6: {
            const unsigned long pos = Below(size + 1);
            const unsigned long count = Below(8) == 0 ? Below(150) : Below(10);
            set.InsertSegment(pos, count);
            model.insert(model.begin() + static_cast<long>(pos), count, false);
            break;
        }
        case 7: {
            const unsigned long pos = Below(size + 1);
            const unsigned long count =
                Below(Below(4) == 0 ? size - pos + 1 : 10) % (size - pos + 1);
            set.RemoveSegment(pos, count);
            const auto at = model.begin() + static_cast<long>(pos);
            model.erase(at, at + static_cast<long>(count));
            break;
        }
        case 8: { // a copy keeps stale bits and none of the room
            const dsBitSet copy(set);
            ASSERT_EQ(copy.GetSize(), set.GetSize());
            dsBitSet target(size);
            target.Fill(0, 0);
            ASSERT_EQ(target = copy, 1);
            ASSERT_TRUE(target.Resize(size + 9));
            Model larger = model;
            larger.resize(size + 9);
            ExpectSame(target, larger);
            break;
        }
        default:
            Combine();
        }
        ExpectSame(set, model);
    }

private:
    unsigned long Below(unsigned long end) { return random() % end; }

    void Combine() {
        const unsigned long size = model.size();
        dsBitSet other(size + 1);
        Model otherModel(size);
        for (unsigned long i = 0; i < size; ++i)
            if (Below(2) == 0) {
                other.SetOn(i);
                otherModel[i] = true;
            }
        other.SetOn(size);
        struct Operation {
            int (dsBitSet::*apply)(const dsBitSet&);
            bool (*meaning)(bool mine, bool theirs);
        };
        static constexpr Operation operations[] = {
            {&dsBitSet::operator=, [](bool, bool theirs) { return theirs; }},
            {&dsBitSet::operator&=, [](bool mine, bool theirs) { return mine && theirs; }},
            {&dsBitSet::operator|=, [](bool mine, bool theirs) { return mine || theirs; }},
            {&dsBitSet::operator^=, [](bool mine, bool theirs) { return mine != theirs; }},
            {&dsBitSet::operator-=, [](bool mine, bool theirs) { return mine && !theirs; }},
            {&dsBitSet::operator%=, [](bool mine, bool theirs) { return !mine && theirs; }},
        };
        const Operation& operation = operations[Below(std::size(operations))];
        const std::string before = BytesOf(set, size);
        ASSERT_EQ((set.*operation.apply)(other), 0); // one bit too large
        ASSERT_EQ(BytesOf(set, size), before);
        ASSERT_TRUE(other.Resize(size)); // leaves a stale bit behind the end
        ASSERT_EQ((set.*operation.apply)(other), 1);
        for (unsigned long i = 0; i < size; ++i)
            model[i] = operation.meaning(model[i], otherModel[i]);
    }

    dsBitSet set;
    Model model;
    std::mt19937 random;
};

std::string Packed(const std::string& bytes) {
    std::ostringstream packed;
    EXPECT_EQ(Pack(bytes.data(), static_cast<unsigned int>(bytes.size()), packed), 0);
    return packed.str();
}

} // namespace

TEST(BitSets, EveryOperationAgreesWithAModel) {
    std::vector<unsigned int> sizes(75);
    std::iota(sizes.begin(), sizes.end(), 0);
    sizes.insert(sizes.end(), {127, 128, 129, 255, 256, 2047, 2048, 4001});
    for (const unsigned int size : sizes) {
        Pair pair(size, size);
        for (int step = 0; step < (size < 1000 ? 120 : 25); ++step) {
            pair.Step();
            if (testing::Test::HasFatalFailure())
                FAIL() << "size " << size << ", step " << step;
        }
    }
}

TEST(BitSets, BytesAreLaidOutFromTheTopBitAndSpareOnesStayOff) {
    dsBitSet set(10);
    set.SetOn(3);
    set.SetOn(9);
    EXPECT_EQ(BytesOf(set, 10), "\x10\x40");
    set.Reverse();
    EXPECT_EQ(BytesOf(set, 10), "\xEF\x80");
    set.Fill(0, 0);
    EXPECT_EQ(BytesOf(set, 10), "\xFF\xC0");
    dsBitSet cut(16);
    cut.SetOn(12);
    cut.Resize(10);
    dsBitSet empty(10);
    EXPECT_EQ(empty ^= cut, 1); // bit 12 is out of reach of both
    EXPECT_EQ(BytesOf(empty, 10), std::string(2, '\0'));
    EXPECT_EQ(BytesOf(cut, 10), std::string("\0\x08", 2));
    cut.Resize(9);
    cut.Resize(14);
    EXPECT_TRUE(cut.IsEmpty());
}

TEST(BitSets, PrintAsAListOfDecimalNumbersWhateverTheStreamSays) {
    dsBitSet set(20);
    std::ostringstream text;
    text << std::hex << std::showpos << set;
    set.SetOn(1);
    set.SetOn(15);
    text << set;
    text.setstate(std::ios::failbit);
    text << set;
    EXPECT_EQ(text.str(), "[][1, 15]");
}

TEST(BitSets, ASizeThatCannotBeHadChangesNothing) {
    dsBitSet set(12);
    set.SetOn(5);
    const std::string before = BytesOf(set, 12);
    for (const unsigned long index : {none, none - 1, none - 63}) {
        EXPECT_FALSE(set.SetOn(index));
        EXPECT_FALSE(set.SetOff(index));
        EXPECT_FALSE(set.Resize(index));
        set.InsertSegment(3, index);
        set.RemoveSegment(3, index);
        EXPECT_EQ(dsBitSet(index).GetIndex(0), none); // of size 0
    }
    set.InsertSegment(13, 1);
    set.RemoveSegment(3, 10);
    failnew::after = 0;
    EXPECT_FALSE(set.Resize(16));
    EXPECT_FALSE(set.SetOn(4000));
    dsBitSet small(100);
    failnew::after = -1;
    EXPECT_EQ(BytesOf(set, 12), before);
    EXPECT_EQ(set.GetIndex(12), none);
    EXPECT_EQ(small.GetIndex(0), none);
    EXPECT_TRUE(small.SetOn(99));
}

TEST(BitSets, RowsOfZerosArePackedInRunsOfAtMost255) {
    using std::string;
    for (const auto& [bytes, packed] : support::Vectors("packed"))
        EXPECT_EQ(Packed(support::FromHex(bytes)), support::FromHex(packed)) << bytes;
    EXPECT_EQ(Packed(string(255, '\0')), string("255\0\xFF", 5));
    EXPECT_EQ(Packed(string(256, '\0')), string("256\0\xFF\0\x01", 7));
    EXPECT_EQ(Packed(string(510, '\0') + "x"), string("510\0\xFF\0\xFFx", 8).replace(2, 1, "1"));
    EXPECT_EQ(Packed(string(9000, '\xFF')), "9000" + string(9000, '\xFF'));
    std::ostringstream out;
    EXPECT_EQ(Pack(nullptr, 3, out), 1);
    EXPECT_EQ(Pack("abc", 0, out), 1);
    EXPECT_EQ(out.str(), "");
    out.setstate(std::ios::badbit);
    EXPECT_EQ(Pack("abc", 3, out), 1);
    EXPECT_EQ(dsBitSet(3).Save(out), 0);

    // Every kind of row around the sizes of buffers, and back.
    std::mt19937 random(5);
    for (int round = 0; round < 300; ++round) {
        string bytes(1, '\x7F');
        while (bytes.size() < 9000)
            bytes.append(random() % 600, random() % 2 ? '\0' : static_cast<char>(random() % 256));
        std::istringstream in(Packed(bytes));
        string back(bytes.size() + 1, '?');
        ASSERT_EQ(Unpack(in, back.data()), bytes.size());
        ASSERT_EQ(back, bytes + '?');
    }
}

TEST(BitSets, OnlyABlockOfExactlyItsBytesRestoresASet) {
    using std::string;
    const struct {
        string block;
        int restored;
        string bytes; // of a set of 20 bits that was full
    } rows[] = {
        {string("3\x81\0\x01\x1F", 5), 1, string("\x81\0\x1F", 3)},
        {string("3\0\x03", 3), 1, string(3, '\0')},
        {string("3\0\x03\0\0", 5), 1, string(3, '\0')}, // a run of nothing
        {string("999\0\x03", 5), 1, string(3, '\0')},   // the count is not believed
        {string("3\x81\0\x01", 4), 0, string("\x81\0\xF0", 3)},
        {string("3abcd"), 0, "abc"},
        {string("3a\0\xFF", 4), 0, string("a\0\0", 3)},
        {string("3abc\0\x01", 6), 0, "abc"},
        {string("3abc\0", 5), 0, "abc"}, // torn behind the last byte
        {string("3ab\0", 4), 0, "ab\xF0"},
        {string("34bc"), 0, "bc\xF0"}, // the first byte went into the count
        {string("3"), 0, "\xFF\xFF\xF0"},
        {string("abc"), 0, "\xFF\xFF\xF0"},
        {string(), 0, "\xFF\xFF\xF0"},
    };
    for (const auto& row : rows) {
        dsBitSet set(20);
        set.Fill(0, 0);
        EXPECT_EQ(set.GetSize(), 20u);
        std::istringstream in(row.block);
        EXPECT_EQ(set.Restore(in), row.restored) << testing::PrintToString(row.block);
        EXPECT_EQ(BytesOf(set, 20), row.bytes) << testing::PrintToString(row.block);
        EXPECT_EQ(in.rdstate() & std::ios::badbit, 0);
        dsBitSet counted(20);
        EXPECT_EQ(counted = set, 1);
        EXPECT_EQ(set.GetSize(), counted.GetSize());
        for (const unsigned long larger : {22ul, 24ul, 31ul}) { // spare bits do not come into reach
            EXPECT_TRUE(set.Resize(larger));
            EXPECT_EQ(set.GetSize(), counted.GetSize());
        }
    }
    dsBitSet set(20);
    std::istringstream failed("3abc");
    failed.setstate(std::ios::failbit);
    EXPECT_EQ(set.Restore(failed), 0);
    EXPECT_TRUE(set.IsEmpty());
    std::istringstream torn(string("3ab\0", 4));
    string target(4, '?');
    EXPECT_EQ(Unpack(torn, target.data()), 0u);
}

TEST(BitSets, AWalkSeesChangesFromItsNextStepOn) {
    dsBitSet set(40);
    set.SetOn(7);
    const std::unique_ptr<dsBaseIter<int>> walk(set.GetIter());
    EXPECT_EQ(walk->Current(), 0); // on or off
    walk->SetAtFirst();
    const std::unique_ptr<dsBaseIter<int>> second(walk->Reproduce());
    set.SetOn(20);
    walk->MoveToNext();
    EXPECT_EQ(walk->Current(), 20);
    EXPECT_EQ(second->Current(), 7);
    walk->MoveToNext();
    EXPECT_TRUE(walk->Finished());
    walk->MoveToNext();
    EXPECT_TRUE(walk->Finished());
}
