// SPDX-License-Identifier: MIT
#include "dsunique.h"

#include <memory>

#include "ds/lasting.h"
#include "ds/stringdatabase.h"

dsNonOwnerStringMap<dsStringCell*>& StringDatabase() {
    return LastingMap<dsNonOwnerStringMap<dsStringCell*>>();
}

void dsStringCell::AddToDatabase(const char* s, dsStringCell*& cell) {
    if (s == nullptr)
        s = "";
    auto& database = StringDatabase();
    unsigned int index;
    if (database.FindIndex(s, index)) {
        cell = database.GetByIndex(index);
    } else {
        auto fresh = std::make_unique<dsStringCell>(s);
        // The key is the cell's own copy: it lives as long as the entry, and `s` need not.
        database.Add(fresh->GetString(), fresh.get());
        cell = fresh.release();
    }
    ++cell->refCount;
}

void dsStringCell::Release(dsStringCell*& cell) {
    if (--cell->refCount != 0)
        return;
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
