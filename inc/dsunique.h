// SPDX-License-Identifier: MIT
//
// Interned strings: texts of which the process holds one copy each, so that two of them are
// compared by comparing two addresses, however long they are.
//
// How dsUniqueString differs from std::string: its text never changes, and it is neither copied
// nor assigned. Making one of a text that is there costs a look into a table. A new text costs two
// allocations, a binary search in the process-wide database, which is one array in the order of
// the texts, and a block move of what lies behind it; and another move when it goes. An object is
// two words, since it has virtual operations.
//
// Nothing here is safe between threads: one thread at a time makes or destroys unique strings and
// counts references. Unique strings of static lifetime, in any module, are fine.
#ifndef PLINTH_DSUNIQUE_H
#define PLINTH_DSUNIQUE_H

#include <cstdint>

#include "dsstring.h"

/// The one copy of a text, and a count of who refers to it. The database knows the cell from its
/// first reference to its last, and no longer: a text that comes back later gets a new cell.
class ZEL_EXPORT dsStringCell {
public:
    /// A cell outside the database, without a reference.
    explicit dsStringCell(const char* s) : refCount(0), cellText(s) {}
    dsStringCell(const dsStringCell&) = delete;
    dsStringCell& operator=(const dsStringCell&) = delete;

    /// One more reference to a cell in hand.
    void Lock() { ++refCount; }
    /// Never null, and the same as long as the cell lives.
    const char* GetString() const { return cellText; }

    /// Sets `cell` to the cell for the text of `s`, with one more reference. Null is the empty
    /// text.
    static void AddToDatabase(const char* s, dsStringCell*& cell);
    /// Gives one reference back. The last one deletes the cell and makes `cell` null.
    static void Release(dsStringCell*& cell);

private:
    std::int32_t refCount;
    dsString cellText;
};

/// One reference to the cell of a text.
class ZEL_EXPORT dsUniqueString : public dsBaseString {
public:
    /// A null `s` is the empty text. `s` is copied if it is new.
    dsUniqueString(const char* s);
    dsUniqueString(const dsUniqueString&) = delete;
    dsUniqueString& operator=(const dsUniqueString&) = delete;
    ~dsUniqueString() override;

    operator const char*() const override { return cell->GetString(); }
    const char* GiveString() const { return cell->GetString(); } ///< the same text

    /// Whether the texts are the same: addresses of cells, which say so while both strings live.
    bool operator==(const dsUniqueString& other) const { return cell == other.cell; }
    /// The contrary.
    bool operator!=(const dsUniqueString& other) const { return cell != other.cell; }

private:
    dsStringCell* cell;
};

#endif
