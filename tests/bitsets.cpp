// SPDX-License-Identifier: MIT
#include <dsbitset.h>

#include <memory>
#include <numeric>
#include <random>
#include <sstream>

#include <gtest/gtest.h>

#include "failnew.h"
#include "vectors.h"

namespace {

using Model = std::vector<bool>;
using Answers = std::vector<unsigned long>;
constexpr unsigned long none = dsBitSet::none;

/// Everything that can be asked of a set.
Answers Ask(const dsBitSet& set, unsigned long size) {
    const std::unique_ptr<dsBaseIter<int>> walk(set.GetIter()); // stands at 0, on or off
    Answers answers{set.GetSize(), set.IsEmpty(),  set.First(),
                    set.Last(),    set.Next(none), static_cast<unsigned long>(walk->Current())};
    for (unsigned long i = 0; i <= size; ++i)
        answers.insert(answers.end(), {set.IsOn(i), set.GetIndex(i), set.Previous(i), set.Next(i),
                                       set.ByIndex(i)});
    for (walk->SetAtFirst(); !walk->Finished(); walk->MoveToNext())
        answers.push_back(static_cast<unsigned long>(walk->Current()));
    return answers;
}

Answers Expected(const Model& model) {
    Answers on;
    for (unsigned long i = 0; i < model.size(); ++i)
        if (model[i])
            on.push_back(i);
    const auto nth = [&](unsigned long k) { return k < on.size() ? on[k] : none; };
    Answers answers{on.size(), on.empty(), nth(0), nth(on.size() - 1), none, 0};
    for (unsigned long i = 0, rank = 0; i < model.size(); rank += model[i++])
        answers.insert(answers.end(),
                       {model[i], rank, nth(rank - 1), nth(rank + model[i]), nth(i)});
    answers.insert(answers.end(), {0, none, none, none, nth(model.size())});
    answers.insert(answers.end(), on.begin(), on.end());
    return answers;
}

std::string Packed(const std::string& bytes) {
    std::ostringstream packed;
    packed << std::hex << std::showbase;
    EXPECT_EQ(Pack(bytes.data(), static_cast<unsigned int>(bytes.size()), packed), 0);
    return packed.str();
}

std::string Saved(const dsBitSet& set) {
    std::ostringstream saved;
    EXPECT_EQ(set.Save(saved), 1);
    return saved.str();
}

struct Operation {
    int (dsBitSet::*apply)(const dsBitSet&);
    bool (*meaning)(bool mine, bool theirs);
};
constexpr Operation operations[] = {
    {&dsBitSet::operator=, [](bool, bool theirs) { return theirs; }},
    {&dsBitSet::operator&=, [](bool mine, bool theirs) { return mine && theirs; }},
    {&dsBitSet::operator|=, [](bool mine, bool theirs) { return mine || theirs; }},
    {&dsBitSet::operator^=, [](bool mine, bool theirs) { return mine != theirs; }},
    {&dsBitSet::operator-=, [](bool mine, bool theirs) { return mine && !theirs; }},
    {&dsBitSet::operator%=, [](bool mine, bool theirs) { return !mine && theirs; }},
};

} // namespace

TEST(BitSets, EveryOperationAgreesWithAModel) {
    std::vector<unsigned long> sizes(75);
    std::iota(sizes.begin(), sizes.end(), 0);
    sizes.insert(sizes.end(), {127, 128, 129, 255, 256, 2047, 2048, 4001});
    std::mt19937 random(1);
    const auto below = [&](unsigned long end) { return random() % end; };
    for (const unsigned long start : sizes) {
        dsBitSet set(start);
        Model model(start);
        std::unique_ptr<dsBaseIter<int>> walk(set.GetIter()); // sees changes from its next step on
        for (int step = 0; step < (start < 1000 ? 80 : 25); ++step) {
            const unsigned long size = model.size(), pos = below(size + 1), to = below(size + 1);
            const auto at = model.begin() + static_cast<long>(pos);
            const unsigned long count = below(below(8) == 0 ? 150 : 10);
            switch (below(9)) {
            case 0: // within the set mostly, and beyond its end
                ASSERT_TRUE(step % 3 != 0 ? set.SetOn(pos + count) : set.SetOff(pos + count));
                model.resize(std::max(size, pos + count + 1));
                model[pos + count] = step % 3 != 0;
                break;
            case 1: // what is cut off must not come back
                ASSERT_TRUE(set.Resize(pos) && set.Resize(pos + count));
                model.resize(pos);
                model.resize(pos + count);
                break;
            case 2:
                set.Fill(pos, to);
                for (unsigned long i = pos; i < (to == 0 ? size : to); ++i)
                    model[i] = true;
                break;
            case 3:
                step % 4 == 0 ? set.Clear() : set.Reverse();
                step % 4 == 0 ? model.assign(size, false) : model.flip();
                break;
            case 4:
                set.InsertSegment(pos, count);
                model.insert(at, count, false);
                break;
            case 5:
                set.RemoveSegment(pos, std::min(count, size - pos));
                model.erase(at, at + static_cast<long>(std::min(count, size - pos)));
                break;
            case 6: { // a copy has stale bits, and none of the room
                dsBitSet copy(set), target(size);
                ASSERT_EQ(target = copy, 1);
                ASSERT_TRUE(target.Resize(size + 4) && copy.Resize(size + 4));
                Model larger = model;
                larger.resize(size + 4);
                ASSERT_EQ(Ask(target, size + 4), Expected(larger));
                ASSERT_EQ(Ask(copy, size + 4), Expected(larger));
                break;
            }
            default: {
                const Operation& operation = operations[below(std::size(operations))];
                dsBitSet other(size + 1);
                other.Fill(to, 0);
                other.SetOff(to / 2);
                ASSERT_EQ((set.*operation.apply)(other), 0); // one bit too large
                ASSERT_TRUE(other.Resize(size));             // a stale bit is left behind the end
                ASSERT_EQ((set.*operation.apply)(other), 1);
                for (unsigned long i = 0; i < size; ++i)
                    model[i] = operation.meaning(model[i], i >= to && i != to / 2);
            }
            }
            ASSERT_EQ(Ask(set, model.size()), Expected(model)) << start << ", step " << step;
            const auto next =
                static_cast<int>(set.Next(static_cast<unsigned long>(walk->Current())));
            walk.reset(walk->Reproduce());
            walk->MoveToNext();
            ASSERT_EQ(walk->Current(), next);
            if (walk->Finished())
                walk.reset(set.GetIter());
            ASSERT_TRUE(Saved(set).starts_with(std::to_string(model.size() / 8 + 1)));
        }
    }
}

TEST(BitSets, BytesAreLaidOutFromTheTopBitAndSpareOnesStayOff) {
    dsBitSet set(10), cut(16), empty(10);
    set.SetOn(3);
    set.SetOn(9);
    EXPECT_EQ(Saved(set), "2\x10\x40");
    set.Reverse();
    EXPECT_EQ(Saved(set), "2\xEF\x80");
    set.Fill(0, 0);
    EXPECT_EQ(Saved(set), "2\xFF\xC0");
    cut.SetOn(12);
    cut.Resize(10);
    EXPECT_EQ(empty ^= cut, 1); // bit 12 is out of reach of both
    EXPECT_EQ(Saved(empty), Packed(std::string(2, '\0')));
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
    for (const unsigned long index : {none, none - 1, none - 63}) {
        EXPECT_FALSE(set.SetOn(index) || set.SetOff(index) || set.Resize(index));
        set.InsertSegment(3, index);
        set.RemoveSegment(3, index);
        EXPECT_EQ(dsBitSet(index).GetIndex(0), none); // of size 0
    }
    set.InsertSegment(13, 1);
    set.RemoveSegment(3, 10);
    failnew::after = 0;
    EXPECT_FALSE(set.Resize(16) || set.SetOn(4000));
    dsBitSet small(100);
    failnew::after = -1;
    Model model(12);
    model[5] = true;
    EXPECT_EQ(Ask(set, 12), Expected(model));
    EXPECT_EQ(Ask(small, 0), Expected({}));
}

TEST(BitSets, ArePackedInRunsOfAtMost255Zeros) {
    using std::string;
    for (const auto& [bytes, packed] : support::Vectors("packed"))
        EXPECT_EQ(Packed(support::FromHex(bytes)), support::FromHex(packed)) << bytes;
    EXPECT_EQ(Packed(string(255, '\0')), string("255\0\xFF", 5));
    EXPECT_EQ(Packed(string(256, '\0')), string("256\0\xFF\0\x01", 7));
    EXPECT_EQ(Packed(string(510, '\0') + "x"), "511" + string("\0\xFF\0\xFFx", 5));
    std::ostringstream out;
    EXPECT_EQ(Pack(nullptr, 3, out) + Pack("abc", 0, out), 2);
    EXPECT_EQ(out.str(), "");
    out.setstate(std::ios::badbit);
    EXPECT_EQ(Pack("abc", 3, out), 1);
    EXPECT_EQ(dsBitSet(3).Save(out), 0);

    std::mt19937 random(5); // every kind of row around the sizes of buffers, and back
    for (int round = 0; round < 300; ++round) {
        string bytes(1, 'a'); // no digit, whatever the base of the stream
        while (bytes.size() < 9000)
            bytes.append(random() % (round % 3 == 0 ? 3 : 600),
                         random() % 2 ? '\0' : static_cast<char>(random() % 256));
        std::istringstream in(Packed(bytes));
        in >> std::hex;
        string back(bytes.size() + 1, '?');
        ASSERT_EQ(Unpack(in, back.data()), bytes.size());
        ASSERT_EQ(back, bytes + '?');
    }
}

TEST(BitSets, AreRestoredByABlockOfExactlyTheirBytes) {
    for (const auto& [outcome, block] : support::Vectors("packed-for-20-bits")) {
        const bool accepted = outcome.starts_with("set");
        dsBitSet set(20), counted(20);
        set.Fill(0, 0);
        EXPECT_EQ(set.GetSize(), 20u);
        std::istringstream in(support::FromHex(block));
        EXPECT_EQ(set.Restore(in), accepted ? 1 : 0) << block;
        EXPECT_EQ(Saved(set), Packed(support::FromHex(outcome.substr(accepted ? 4 : 3)))) << block;
        EXPECT_EQ(counted = set, 1);
        for (const unsigned long size : {20ul, 22ul, 24ul, 31ul}) { // spare bits stay out of reach
            EXPECT_TRUE(set.Resize(size));
            EXPECT_EQ(set.GetSize(), counted.GetSize()) << block;
        }
        in.setstate(std::ios::failbit);
        EXPECT_EQ(set.Restore(in), 0);
    }
    std::istringstream torn(std::string("3ab\0", 4));
    std::string target(4, '?');
    EXPECT_EQ(Unpack(torn, target.data()), 0u);
}
