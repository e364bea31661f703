// SPDX-License-Identifier: MIT
#include "dsunique.h"

#include <memory>

#include "ds/lasting.h"
#include "ds/nameindex.h"
#include "ds/stringdatabase.h"

namespace {

/// Of the cells in the database.
constinit NameIndex names;

/// The place in the database of the name that came last, unless another has come or gone since:
/// what comes last is often what goes next.
constinit unsigned int newest = 0;

} // namespace

dsNonOwnerStringMap<dsStringCell*>& StringDatabase() {
    return LastingMap<dsNonOwnerStringMap<dsStringCell*>>();
}

void dsStringCell::AddToDatabase(const char* s, dsStringCell*& cell) {
    if (s == nullptr)
        s = "";
    const std::uint32_t hash = NameIndex::HashOf(s);
    dsStringCell* found = names.Find(s, hash);
    if (found == nullptr) {
        auto& database = StringDatabase();
        unsigned int index;
        if (database.FindIndex(s, index)) {
            found = database.GetByIndex(index);
        } else {
            auto fresh = std::make_unique<dsStringCell>(s);
            // The key is the cell's own copy: it lives as long as the entry, and `s` need not.
            database.AddAt(index, fresh->GetString(), fresh.get());
            newest = index;
            found = fresh.release();
        }
        names.Add(found, hash);
    }
    cell = found;
    ++cell->refCount;
}

void dsStringCell::Release(dsStringCell*& cell) {
    if (--cell->refCount != 0)
        return;
    names.Remove(cell, NameIndex::HashOf(cell->GetString()));
    auto& database = StringDatabase();
    unsigned int index = newest;
    if ((index < database.GetSize() && database.GetByIndex(index) == cell) ||
        database.FindIndex(cell->GetString(), index))
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
