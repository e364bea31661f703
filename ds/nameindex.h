// SPDX-License-Identifier: MIT
//
// Finds string cells by a hash of their texts, beside the database, which asks one text after the
// other. It is a help and no more: it may lack a cell, where many hashes are the same or memory
// ran out, and who does not find one here asks the database.
#ifndef PLINTH_DS_NAMEINDEX_H
#define PLINTH_DS_NAMEINDEX_H

#include <cstddef>
#include <cstdint>

class dsStringCell;

/// A hash table without chains: a cell lies less than `reach` places behind that of its hash, with
/// no free place between. At least half of the places are free, and the table grows and shrinks
/// with the number of cells. The first places cost nothing; no operation fails.
class NameIndex {
public:
    constexpr NameIndex() = default;
    NameIndex(const NameIndex&) = delete;
    NameIndex& operator=(const NameIndex&) = delete;

    static std::uint32_t HashOf(const char* text);

    /// The cell with this text, or null.
    dsStringCell* Find(const char* text, std::uint32_t hash) const;
    /// Requires: Find does not find it.
    void Add(dsStringCell* cell, std::uint32_t hash);
    /// Nothing happens for one that is not there.
    void Remove(const dsStringCell* cell, std::uint32_t hash);

private:
    struct Place {
        dsStringCell* cell;
        std::uint32_t hash;
    };
    static constexpr std::size_t reach = 32;
    static constexpr std::size_t fewest = 64;

    std::size_t Behind(std::size_t place) const { return (place + 1) & last; }
    void Enter(const Place& entry);
    void MoveTo(std::size_t capacity);

    Place first[fewest] = {};
    Place* places = first;
    std::size_t last = fewest - 1; ///< capacity - 1, the mask of an index
    std::size_t count = 0;
};

#endif
