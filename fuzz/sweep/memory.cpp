// SPDX-License-Identifier: MIT
//
// Containers, strings and interned texts: when memory runs out in the middle, they are as before.
#include <cstring>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <dsbitset.h>
#include <dsdatcol.h>
#include <dsortmap.h>
#include <dsstring.h>
#include <dsunique.h>
#include <rwstream.h>

#include "outside/quillmarsh/memory.h"
#include "outside/strstream.h"
#include "sweep.h"

namespace {

using namespace sweep;

struct Array : dsXArray<char> {
    Array() : dsXArray<char>(nullptr) {}
    using dsXArray<char>::IsConsistent;
    std::string Text() const { return std::string(GetDataPtr(), GetSize()); }
};

/// Changes an array of 250 bytes, in blocks of 256, in every way that can need another block.
void Arrays() {
    using Change = void (*)(Array&);
    const std::string start(250, 'a'), more(600, 'b');
    static const std::string* const added = &more;
    const Change changes[] = {
        [](Array& array) { array.Append(600, added->data()); },
        [](Array& array) { array.Insert(5, 600, added->data()); },
        [](Array& array) {
            for (const char c : *added)
                array += c;
        },
        [](Array& array) { array.Insert(array.GetSize(), 'c'); },
        [](Array& array) { array.Resize(1000); },
        [](Array& array) { array.RemoveAt(3, 240, nullptr); },
        [](Array& array) { array.Clear(); },
    };
    for (const Change change : changes) {
        Array array, right;
        for (Array* one : {&array, &right})
            one->Append(250, start.data());
        change(right);
        const bool done = Try([&] { change(array); });
        Expect(array.IsConsistent(), "the array is in order");
        if (done)
            Expect(array.GetSize() == right.GetSize() &&
                       (array.GetSize() == 1000 || array.Text() == right.Text()),
                   "the change is made");
        else // single elements come one at a time
            Expect(array.Text().starts_with(start), "the array is as before");
        array.Append(600, added->data());
        Expect(array.IsConsistent(), "it can be used");
    }
}

void ArrayIterators() {
    Array array;
    array.Append(3, "abc");
    int count = 0;
    Try([&] {
        const std::unique_ptr<dsBaseIter<char>> iter(array.GetIter());
        const std::unique_ptr<dsBaseIter<char>> other(iter->Reproduce());
        for (iter->SetAtFirst(); !iter->Finished(); iter->MoveToNext())
            count += iter->Current() == "abc"[count] ? 1 : 0;
    });
    Expect(count == 3 || !MustWork(), "it goes over all");
}

void Maps() {
    dsScalarMap<pmManageTask*, void*> map;
    std::vector<char> keys(100);
    int added = 0;
    for (char& key : keys)
        added += Try(false, [&] { return map.Add(&key, nullptr); }) ? 1 : 0;
    Expect(map.GetSize() == static_cast<unsigned>(added), "what was added is there");
    Expect(added == 100 || !MustWork(), "all of it");
    for (char& key : keys)
        if (!map.Contains(&key))
            Expect(map.Add(&key, nullptr), "and the rest can be added");
    Expect(map.GetSize() == 100, "it is complete");
    for (char& key : keys) {
        Try([&] { map.Remove(&key); });
        Expect(!map.Contains(&key), "it is removed");
    }
}

struct Names : dsScalarMap<pmManageTask*, void*> {
    using dsScalarMap<pmManageTask*, void*>::IsConsistent;
};

void MapIterators() {
    Names map;
    char keys[2];
    pmManageTask* const value = reinterpret_cast<pmManageTask*>(keys);
    map.Add(&keys[0], value), map.Add(&keys[1], nullptr);
    int count = 0;
    Try([&] {
        const std::unique_ptr<dsBaseIter<pmManageTask*>> iter(map.GetIter());
        const std::unique_ptr<dsBaseIter<pmManageTask*>> other(iter->Reproduce());
        for (iter->SetAtFirst(); !iter->Finished(); iter->MoveToNext())
            count += iter->Current() == other->Current() || count == 1 ? 1 : 0;
        pmManageTask* found = nullptr;
        Expect(map.Find(&keys[0], found) && found == value && map[&keys[0]] == value, "found");
    });
    Expect(count == 2 || !MustWork(), "it goes over all");
    Expect(map.IsConsistent(), "the map is in order");
    Try([&] { map.Clear(); });
    Expect(map.GetSize() == 0 && map.IsEmpty(), "it is empty");
}

void Strings() {
    using Change = void (*)(dsString&);
    const Change changes[] = {
        [](dsString& s) { s = "another text, and a longer one"; },
        [](dsString& s) { s += " and more behind it"; },
        [](dsString& s) { s += 'c'; },
        [](dsString& s) { s.Replace(1, 3, "in the midst of it"); },
        [](dsString& s) { s.ReplaceSubStr("a", "something long", 10); },
        [](dsString& s) { s = dsString("one") + "two"; },
        [](dsString& s) { s = dsString("one", "two"); },
        [](dsString& s) { s = dsString(dsString(nullptr), "wide"); },
        [](dsString& s) { s = dsString(L"wide"); },
        [](dsString& s) { s = dsString("cut off", 3u); },
        [](dsString& s) {
            std::strstream stream;
            stream << "streamed" << '\0';
            stream.freeze(false);
            s = stream;
        },
        [](dsString& s) { ToString(-12345, s, ToStringDecimal); },
        [](dsString& s) { ToString(12345u, s, ToStringHex); },
        [](dsString& s) { dsMkToken("a token;another", s, ';'); },
        [](dsString& s) { dsGetNextToken("a token;another", s, ';'); },
        [](dsString& s) { Getenv("PATH", s); },
    };
    for (const Change change : changes) {
        dsString text("a banana"), right("a banana");
        change(right);
        const bool done = Try([&] { change(text); });
        const char* const got = text;
        Expect(done ? std::strcmp(got, right) == 0
                    : std::strcmp(got, "a banana") == 0 || text.IsEmpty(),
               "changed, or as before, or empty");
        change(text);
        Expect(text.GetLength() != 0, "it can be used");
    }
    const bool made = Try([] { const dscharStr copy("text"); });
    Expect(made || MemoryFails(), "a copy");
}

void UniqueStrings() {
    std::unique_ptr<dsUniqueString> one, two;
    Try([&] { one = std::make_unique<dsUniqueString>("a text that is kept once"); });
    Try([&] { two = std::make_unique<dsUniqueString>("a text that is kept once"); });
    Expect((one != nullptr && two != nullptr) || !MustWork(), "they are made");
    if (one != nullptr && two != nullptr)
        Expect(*one == *two, "they are the same");
    const dsUniqueString third("a text that is kept once");
    Expect(std::string(third) == "a text that is kept once", "the next one is made");
    Try([&] { one.reset(), two.reset(); });
}

void BitSets() {
    dsBitSet set(100);
    set.SetOn(7);
    const auto isSo = [](const dsBitSet& one) { return one.GetSize() == 1 && one.IsOn(7); };
    const bool larger = Try(false, [&] { return set.Resize(100000); });
    Expect(larger || !MustWork(), "it grows");
    Expect(isSo(set), "its bit stays");
    Try([&] { set.InsertSegment(50, 5000); });
    Expect(isSo(set), "its bit stays");
    Try([&] {
        dsBitSet other(set), third(set);
        third.Clear();
        if ((third |= other) != 0 && (third = other) != 0)
            Expect(isSo(third), "a copy has it too");
    });
    std::stringstream saved;
    bool done = false;
    Try([&] { done = set.Save(saved) != 0; });
    Expect(done || !MustWork(), "it is saved");
    if (done && saved) {
        dsBitSet read(105000);
        bool restored = false;
        Try([&] { restored = read.Restore(saved) != 0; });
        Expect(restored ? isSo(read) : !MustWork(), "and restored");
    }
    std::string packed(1000, 'p');
    std::stringstream block;
    bool stored = false;
    unsigned int count = 0;
    Try([&] { stored = Pack(packed.data(), 1000, block) == 0 && block << set; });
    std::stringstream again;
    Pack(packed.data(), 1000, again);
    Try([&] { count = Unpack(again, packed.data()); });
    Expect((stored && count == 1000) || !MustWork(), "it is packed and unpacked");
    Try([&] { set.RemoveSegment(50, 10); });
    set.Resize(200);
    Expect(isSo(set), "it can be used");
    Try([&] {
        const std::unique_ptr<dsBaseIter<int>> iter(set.GetIter());
        const std::unique_ptr<dsBaseIter<int>> other(iter->Reproduce());
        iter->SetAtFirst();
        Expect(!iter->Finished() && iter->Current() != 0, "there is one");
        for (; !iter->Finished(); iter->MoveToNext())
            continue;
    });
    Try([&] {
        dsBitSet all(100), one(100);
        one.SetOff(300);
        all.Fill(0, 0);
        all.Reverse();
        if (one.SetOn(50)) {
            all = one;
            Expect(((all &= one) & (all |= one) & (all ^= one) & (all -= one) & (all %= one)) <= 1,
                   "results");
            Expect(one.First() == one.Last() && one.Next(5) == 50 && one.Previous(60) == 50 &&
                       one.GetIndex(60) == 1 && one.ByIndex(0) == 50 && !one.IsEmpty(),
                   "one bit is found from all sides");
        }
    });
}

void MemoryStreams() {
    rwStream* stream = nullptr;
    Try([&] { CreateStreamInMemory(&stream); });
    Expect(stream != nullptr || !MustWork(), "it is made");
    if (stream == nullptr)
        return;
    stream->OpenWrite(nullptr);
    std::string bytes(50000, 'x');
    errstatus status = errNone;
    Try([&] { status = stream->Write(bytes.data(), 100); });
    Expect(status == errOK || !MustWork(), "it is written");
    const bool first = status == errOK;
    status = errNone;
    dsXArray<char> array(nullptr);
    array.Append(10, bytes.data());
    std::fpos<int> place;
    Try([&] { stream->Write(array), stream->GetPos(place); });
    Try([&] { status = stream->Write(bytes.data(), 50000); });
    Expect(status == errOK || !MustWork(), "it is written");
    stream->OpenRead(nullptr);
    stream->Seek(0, 0);
    char part[100] = "";
    int count = 0;
    stream->Read(part, 100, count);
    Expect(!first || (count == 100 && std::string(part, 100) == bytes.substr(0, 100)),
           "what was written is there");
    dsXArray<char> got(nullptr);
    stream->Seek(0, 0);
    Try([&] { stream->Read(got); });
    stream->Seek(0, 0);
    Try([&] { stream->ReadLn(got, '\n'); });
    Try([&] { DeleteStreamInMemory(stream); });
}

void Blocks() {
    void* block = nullptr;
    Try([&] { block = zelAlloc(100); });
    Expect(block != nullptr || MemoryFails(), "never null");
    if (block == nullptr)
        return;
    std::memset(block, 'a', 100);
    for (const std::size_t size : {200u, 5000u, 50u}) {
        Try([&] { block = zelReAlloc(block, size); });
        Expect(std::string(static_cast<char*>(block), 50) == std::string(50, 'a'), "it keeps all");
    }
    zelFree(block);
}

const Scenario scenarios[] = {
    {"arrays", "ds*Array<*>::* dsDataCollection<*>::* dsDataMap<*>::*", Arrays},
    {"iterators of arrays", "dsArrayIter<*>::*", ArrayIterators},
    {"maps", "ds*Map<*>::* ds*MapIter<*>::* dsSortedMapEntry<*>::*", Maps},
    {"iterators of maps", "ds*Map<*>::* ds*MapIter<*>::*", MapIterators},
    {"strings",
     "dsString::* dsBaseString::* dscharStr::* ToString dsMkToken dsGetNextToken Getenv operator+",
     Strings},
    {"unique strings", "dsUniqueString::* dsStringCell::*", UniqueStrings},
    {"bit sets", "dsBitSet::* dsBitSetIter::* Pack Unpack operator<<", BitSets},
    {"memory streams", "CreateStreamInMemory DeleteStreamInMemory memStream::* rwStream::*",
     MemoryStreams},
    {"blocks", "zelAlloc zelReAlloc zelFree zelOutOfMemory", Blocks},
};

} // namespace

namespace sweep {
const Family memory{"memory", scenarios};
}
