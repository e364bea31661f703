// SPDX-License-Identifier: MIT
#include "dsunique.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>

#include "ds/lasting.h"
#include "ds/stringdatabase.h"

namespace {

/// The place of the cell that was asked for last, of all whose texts belong there. Programs ask for
/// the same names again and again, and to compare one text is quicker than to search.
dsStringCell*& Recent(const char* s) {
    static constinit dsStringCell* recent[32768] = {};
    std::size_t left = std::strlen(s);
    std::uint64_t hash = left;
    const auto mix = [&](std::uint64_t word) {
        hash = (hash ^ word) * 0x9E3779B97F4A7C15;
        hash ^= hash >> 32;
    };
    std::uint64_t word = 0;
    for (; left >= sizeof word; left -= sizeof word, s += sizeof word) {
        std::memcpy(&word, s, sizeof word);
        mix(word);
    }
    word = 0;
    std::memcpy(&word, s, left);
    mix(word);
    return recent[hash % std::size(recent)];
}

} // namespace

dsNonOwnerStringMap<dsStringCell*>& StringDatabase() {
    return LastingMap<dsNonOwnerStringMap<dsStringCell*>>();
}

void dsStringCell::AddToDatabase(const char* s, dsStringCell*& cell) {
    if (s == nullptr)
        s = "";
    dsStringCell*& recent = Recent(s);
    auto& database = StringDatabase();
    unsigned int index;
    if (recent != nullptr && std::strcmp(recent->GetString(), s) == 0) {
        cell = recent;
    } else if (database.FindIndex(s, index)) {
        cell = recent = database.GetByIndex(index);
    } else {
        auto fresh = std::make_unique<dsStringCell>(s);
        // The key is the cell's own copy: it lives as long as the entry, and `s` need not.
        database.Add(fresh->GetString(), fresh.get());
        cell = recent = fresh.release();
    }
    ++cell->refCount;
}

void dsStringCell::Release(dsStringCell*& cell) {
    if (--cell->refCount != 0)
        return;
    Recent(cell->GetString()) = nullptr;
    auto& database = StringDatabase();
    unsigned int index;
    if (database.FindIndex(cell->GetString(), index))
        database.RemoveByIndex(index);
    delete cell;
    cell = nullptr;
}

dsUniqueString::dsUniqueString(const char* s) {
    dsStringCell::AddToDatabase(s, cell);
}

dsUniqueString::~dsUniqueString() {
    dsStringCell::Release(cell);
}
