// SPDX-License-Identifier: MIT
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <dsbitset.h>
#include <dsdatcol.h>
#include <dsortmap.h>
#include <dsstring.h>
#include <dsunique.h>

#include "costs.h"

namespace {

using namespace costs;

using IntMap = dsScalarMap<pmManageTask*, void*>;

void* Key(unsigned long number) {
    return reinterpret_cast<void*>(number);
}

void AppendSingly() {
    std::optional<dsXArray<char>> array;
    Count([&] { array.emplace(nullptr); },
          [&] {
              for (int i = 0; i < 10000; ++i)
                  *array += 'x';
          });
}

void AppendBlock() {
    const std::string block(4096, 'x');
    std::optional<dsXArray<char>> array;
    Count([&] { array.emplace(nullptr); },
          [&] { array->Append(static_cast<unsigned int>(block.size()), block.data()); });
}

void WalkArray() {
    dsXArray<char> array(nullptr);
    array.Resize(1000);
    Count([&] {
        const std::unique_ptr<dsBaseIter<char>> iter(array.GetIter());
        for (; !iter->Finished(); iter->MoveToNext())
            iter->Current() = 'x';
    });
}

void FillMap() {
    std::optional<IntMap> map;
    Count([&] { map.emplace(); },
          [&] {
              for (unsigned long i = 0; i < 1000; ++i)
                  map->Add(Key(i * 7919 % 1000), nullptr);
          });
}

struct ThousandEntries : IntMap {
    ThousandEntries() {
        for (unsigned long i = 0; i < 1000; ++i)
            Add(Key(i), nullptr);
    }
};

void FindInMap() {
    const ThousandEntries map;
    pmManageTask* found;
    Count([&] { Require(map.Find(Key(500), found)); });
}

void ChangeMap() {
    ThousandEntries map;
    Count([&] { Require(map.Remove(Key(500)) && map.Add(Key(500), nullptr)); });
}

void WalkMap() {
    const ThousandEntries map;
    Count([&] {
        const std::unique_ptr<dsBaseIter<pmManageTask*>> iter(map.GetIter());
        for (; !iter->Finished(); iter->MoveToNext())
            iter->Current() = nullptr;
    });
}

void MakeString() {
    Count([] { dsString("forty-two"); });
}

void EmptyString() {
    Count([] { dsString(); });
}

void AppendToString() {
    dsString text;
    Count([&] { text = "forty"; }, [&] { text += "-two"; });
}

void ReplaceInString() {
    dsString text;
    Count([&] { text = "one two two"; }, [&] { text.ReplaceSubStr("two", "three", 2); });
}

void KnownName() {
    const dsUniqueString kept("a name");
    Count([&] { Require(dsUniqueString("a name") == kept); });
}

void NewName() {
    const dsUniqueString kept("a name");
    Count([&] { Require(dsUniqueString("another") != kept); });
}

void MakeBits() {
    Count([] { dsBitSet(10000); });
}

void CombineBits() {
    dsBitSet some(10000), others(10000);
    Count([&] { some |= others; });
}

void SaveBits() {
    dsBitSet set(10000);
    std::ostringstream out;
    Count([&] { out.seekp(0); }, [&] { set.Save(out); });
}

const Row rows[] = {
    {"dsXArray: 10,000 elements appended one by one", AppendSingly},
    {"dsXArray: a block of 4096 bytes appended to an empty array", AppendBlock},
    {"dsXArray: an iterator over all elements", WalkArray},
    {"map: 1000 entries added", FillMap},
    {"map of 1000: a key found", FindInMap},
    {"map of 1000: an entry removed and added", ChangeMap},
    {"map of 1000: an iterator over all values", WalkMap},
    {"dsString: an empty one made", EmptyString},
    {"dsString: one made from text", MakeString},
    {"dsString: text appended", AppendToString},
    {"dsString: two occurrences replaced", ReplaceInString},
    {"dsUniqueString: of a text that is known", KnownName},
    {"dsUniqueString: of a new text", NewName},
    {"dsBitSet: one of 10,000 bits made", MakeBits},
    {"dsBitSet of 10,000: combined with another", CombineBits},
    {"dsBitSet of 10,000: saved to a stream", SaveBits},
};

} // namespace

const Family costs::containers{"Containers", rows};
