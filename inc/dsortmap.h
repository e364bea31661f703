// SPDX-License-Identifier: MIT
//
// Sorted maps: entries of a key and a value in one array, in ascending order of the keys.
//
// How a sorted map differs from std::map:
//  - Entries lie in one block, inline. A lookup is a binary search that touches no heap node; a
//    new entry or a removal moves the tail by one block copy.
//  - So a reference to a value and an index hold only until the next change of the map.
//  - Add never replaces, and operator[] never inserts: an absent key is a fatal report, and if
//    that comes back, the end of the process, since there is nothing to refer to.
//  - The order is the virtual Compare. Keys and values are moved as bytes, and nothing that they
//    point to is owned: a string that is a key must outlive its entry and not change.
//  - Iterators visit the values in the order of the keys and do not show the keys. An iterator is
//    two objects on the heap, and each test, look and step is a virtual call, so that to walk by
//    GetByIndex is quicker.
//
// Maps may be read by many threads at once and changed by one alone. An Add that runs out of
// memory throws what `new` throws and leaves the map as it was.
#ifndef PLINTH_DSORTMAP_H
#define PLINTH_DSORTMAP_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

#include "dsdatcol.h"

// Containers of these are exported, so their elements must be visible. An attribute would have to
// stand at the first declaration, which may be the class itself.
#pragma GCC visibility push(default)
class dsStringCell;
class pmManageTask;
#pragma GCC visibility pop

/// One entry: two words that the array moves as bytes.
template <typename T, typename K>
class ZEL_EXPORT dsSortedMapEntry {
public:
    /// Stores `newKey` as it is and the value as `policy` copies values.
    dsSortedMapEntry(K newKey, const T& newValue, dsDataCollection<T>& policy) : key(newKey) {
        policy.CopyElems(&newValue, &value, 1);
    }

    K key;   ///< as it was given
    T value; ///< as the map copies values
};

template <typename T, typename K>
class dsMapWalk;

/// Walks the values of a map in the order of their keys.
template <typename T, typename K>
class ZEL_EXPORT dsSortedMapIter : public dsBaseIter<T> {
public:
    /// Takes over `walked`, an iterator of the entries.
    explicit dsSortedMapIter(dsBaseIter<dsSortedMapEntry<T, K>>* walked) : inner(walked) {}
    ~dsSortedMapIter() override = default;

    dsBaseIter<T>* Reproduce() override {
        std::unique_ptr<dsBaseIter<dsSortedMapEntry<T, K>>> copy(inner->Reproduce());
        auto* same = new dsSortedMapIter(copy.get());
        static_cast<void>(copy.release());
        return same;
    }
    void SetAtFirst() override { inner->SetAtFirst(); }
    bool Finished() const override { return inner->Finished(); }
    void MoveToNext() override { inner->MoveToNext(); }
    T& Current() const override { return inner->Current().value; }

private:
    friend dsMapWalk<T, K>;

    std::unique_ptr<dsBaseIter<dsSortedMapEntry<T, K>>> inner;
};

/// Walks an array that is of no deriving class: what would be virtual calls is done in place.
template <typename Entry>
class dsEntryIter final : public dsBaseIter<Entry> {
    using Array = dsXArray<Entry>;

public:
    /// At the first entry. Requires: `walked` outlives the iterator.
    explicit dsEntryIter(const Array& walked) : index(0), array(&walked) {}
    dsEntryIter(const dsEntryIter&) = default;

    dsBaseIter<Entry>* Reproduce() override { return new dsEntryIter(*this); }
    void SetAtFirst() override { index = 0; }
    bool Finished() const override { return index >= array->Array::GetSize(); }
    void MoveToNext() override { ++index; }
    Entry& Current() const override { return array->Array::GetDataPtr()[index]; }

private:
    unsigned int index;
    const Array* array;
};

/// The dsSortedMapIter over such a walk, which is what maps give out. Where the compiler sees that,
/// it knows what the virtual calls of a walk will find.
template <typename T, typename K>
class dsMapWalk final : public dsSortedMapIter<T, K> {
    using Walk = dsEntryIter<dsSortedMapEntry<T, K>>;

public:
    /// Takes over `walked`.
    explicit dsMapWalk(Walk* walked) : dsSortedMapIter<T, K>(walked) {}

    /// A new one where `entries` stands.
    [[gnu::always_inline]] static dsMapWalk* Over(const Walk& entries) {
        auto walked = std::make_unique<Walk>(entries);
        auto* walk = new dsMapWalk(walked.get());
        static_cast<void>(walked.release());
        return walk;
    }

    dsBaseIter<T>* Reproduce() override { return Over(Entries()); }
    void SetAtFirst() override { Entries().SetAtFirst(); }
    bool Finished() const override { return Entries().Finished(); }
    void MoveToNext() override { Entries().MoveToNext(); }
    T& Current() const override { return Entries().Current().value; }

private:
    Walk& Entries() const { return static_cast<Walk&>(*this->inner); }
};

template <typename T, typename K>
class ZEL_EXPORT dsScalarMap;
template <typename T>
class ZEL_EXPORT dsNonOwnerStringMap;

/// A key as an unsigned machine word.
template <typename K>
std::uintptr_t dsWordOf(K key) {
    if constexpr (std::is_pointer_v<K>)
        return reinterpret_cast<std::uintptr_t>(key);
    else
        return static_cast<std::uintptr_t>(key);
}

/// What dsBaseSortedMap::FindIndex gives for `size` entries in the order of such words.
template <typename Entry>
bool dsFindWord(const Entry* stored, unsigned int size, std::uintptr_t key, unsigned int& index) {
    if (size == 0 || dsWordOf(stored[size - 1].key) < key) { // keys often come in order
        index = size;
        return false;
    }
    unsigned int low = 0;
    for (unsigned int count = size; count > 1;) {
        const unsigned int half = count / 2;
        count -= half;
        if (size > 4096) { // no longer near: both places that may come next are fetched meanwhile
            __builtin_prefetch(&stored[low + count / 2]);
            __builtin_prefetch(&stored[low + half + count / 2]);
        }
        // Nobody can predict on which side the key is: arithmetic takes the place of a branch.
        const unsigned int above = dsWordOf(stored[low + half].key) <= key ? 1 : 0;
        low += half & (0 - above);
    }
    const std::uintptr_t nearest = dsWordOf(stored[low].key);
    index = low + (nearest < key ? 1 : 0);
    return nearest == key;
}

/// What dsBaseSortedMap::FindIndex gives for `size` entries in the order of such texts.
template <typename Entry>
bool dsFindText(const Entry* stored, unsigned int size, const char* key, unsigned int& index) {
    if (key == nullptr) {
        index = 0;
        return size != 0 && stored[0].key == nullptr;
    }
    const Entry* from = stored;
    unsigned int count = size;
    if (count != 0 && from->key == nullptr) {
        ++from;
        --count;
    }
    bool found = false;
    // Entries before `from` are not after the key. The steps are as many for every key, and nobody
    // can predict on which side it is: no branch but the loop's. Whichever text comes next is
    // fetched meanwhile.
    for (unsigned int half; count != 0; count -= half) {
        half = (count + 1) / 2;
        const unsigned int next = (count - half + 1) / 2;
        const char* const text = from[half - 1].key;
        if (next != 0) {
            __builtin_prefetch(from[next - 1].key);
            __builtin_prefetch(from[half + next - 1].key);
        }
        const int order = text == key ? 0 : std::strcmp(text, key);
        found |= order == 0;
        from += half & (0U - (order <= 0 ? 1U : 0U));
    }
    index = static_cast<unsigned int>(from - stored) - (found ? 1 : 0);
    return found;
}

/// The logic of every map: A is the array that keeps its entries.
template <typename A, typename T, typename K>
class ZEL_EXPORT dsBaseSortedMap : public dsDataMap<T, K> {
public:
    dsBaseSortedMap() : entries(nullptr) {}
    dsBaseSortedMap(const dsBaseSortedMap&) = delete;
    dsBaseSortedMap& operator=(const dsBaseSortedMap&) = delete;
    /// Gives no key to FreeKey and touches no value.
    ~dsBaseSortedMap() override = default;

    dsBaseIter<T>* GetIter() const override; ///< of the values; the caller deletes it
    unsigned int GetSize() const override { return entries.GetSize(); } ///< entries

    T& operator[](K key) const override; ///< the value; without the key, a fatal report
    bool Contains(K key) const override; ///< whether there is an entry
    /// False if the key is there already; its value stays.
    bool Add(K key, const T& value) override;
    bool Remove(K key) override; ///< false without the key
    /// Copies the value; without the key, false and `value` untouched.
    bool Find(K key, T& value) const override;
    /// Gives no key to FreeKey, and keeps the capacity.
    virtual void Clear() { entries.Clear(); }

    /// True, and the entry's index; or false, and the index at which the key belongs.
    bool FindIndex(K key, unsigned int& index) const;
    /// Requires, for both: `index` is below GetSize().
    T& GetByIndex(unsigned int index) const { return entries.GetDataPtr()[index].value; }
    void RemoveByIndex(unsigned int index); ///< likewise; FreeKey gets the key

protected:
    /// Positive, negative or 0 as the `first` key, which is sought, sorts after, before or with
    /// the `second`, which is stored.
    virtual int Compare(K first, K second) const = 0;
    /// What a map that owns its keys overrides: the key to store in a new entry, and what is done
    /// with the key of one that goes. Called by Add and by RemoveByIndex.
    virtual K CopyKey(K key) const { return key; }
    virtual void FreeKey(K) const {} ///< nothing by default

    /// What must hold after every operation; for tests.
    bool IsConsistent() const;

private:
    friend dsStringCell; // searches once, for the cell and for its place

    /// Requires: FindIndex has found no entry, and given this index.
    void AddAt(unsigned int index, K key, const T& value);

    A entries;
};

/// A map with an array of its own. A deriving class gives the order, by Compare.
template <typename T, typename K>
class ZEL_EXPORT dsSortedMap : public dsBaseSortedMap<dsXArray<dsSortedMapEntry<T, K>>, T, K> {};

/// A map by the texts of its keys, byte by byte as unsigned values; a null key comes first.
template <typename T>
class ZEL_EXPORT dsNonOwnerStringMap : public dsSortedMap<T, const char*> {
protected:
    int Compare(const char* first, const char* second) const override {
        if (first == second)
            return 0;
        if (first == nullptr)
            return -1;
        if (second == nullptr)
            return 1;
        const int order = std::strcmp(first, second);
        return (order > 0) - (order < 0);
    }
};

/// A map by the values of its keys, read as unsigned machine words: negative keys come last.
template <typename A, typename T, typename K>
class ZEL_EXPORT dsBaseScalarMap : public dsBaseSortedMap<A, T, K> {
    static_assert(sizeof(K) <= sizeof(std::uintptr_t), "a key is one machine word");

protected:
    /// By the words of the keys.
    int Compare(K first, K second) const override {
        const std::uintptr_t a = WordOf(first), b = WordOf(second);
        return (a > b) - (a < b);
    }

private:
    static std::uintptr_t WordOf(K key) { return dsWordOf(key); }
};

/// A map whose keys are integers, enumerators or pointers, with an array of its own.
template <typename T, typename K>
class ZEL_EXPORT dsScalarMap : public dsBaseScalarMap<dsXArray<dsSortedMapEntry<T, K>>, T, K> {};

template <typename A, typename T, typename K>
bool dsBaseSortedMap<A, T, K>::FindIndex(K key, unsigned int& index) const {
    const auto* const stored = entries.GetDataPtr();
    const unsigned int size = entries.GetSize();
    // A search is little more than comparing, which is done in place where nobody overrides it.
    if constexpr ((std::is_pointer_v<K> || std::is_integral_v<K>)&&sizeof(K) <=
                      sizeof(std::uintptr_t) &&
                  !std::is_same_v<K, const char*>)
        if (dsIsExactly<dsScalarMap<T, K>>(*this))
            return dsFindWord(stored, size, dsWordOf(key), index);
    if constexpr (std::is_same_v<K, const char*>)
        if (dsIsExactly<dsNonOwnerStringMap<T>>(*this))
            return dsFindText(stored, size, key, index);
    unsigned int low = 0;
    for (unsigned int count = stored != nullptr ? size : 0; count != 0;) {
        const unsigned int half = (count - 1) / 2;
        if (size > 4096) { // no longer near: both places that may come next are fetched meanwhile
            __builtin_prefetch(&stored[low + half / 2]);
            __builtin_prefetch(&stored[low + half + count / 4]);
        }
        const int order = Compare(key, stored[low + half].key);
        if (order == 0) {
            index = low + half;
            return true;
        }
        // Nobody can predict on which side the key is: arithmetic takes the place of a branch.
        const unsigned int above = order > 0 ? 1 : 0;
        low += (half + 1) & (0 - above);
        count = (count - 1 + above) / 2;
    }
    index = low;
    return false;
}

template <typename A, typename T, typename K>
bool dsBaseSortedMap<A, T, K>::Contains(K key) const {
    unsigned int index;
    return FindIndex(key, index);
}

template <typename A, typename T, typename K>
T& dsBaseSortedMap<A, T, K>::operator[](K key) const {
    unsigned int index;
    if (!FindIndex(key, index)) {
        zelAbort("dsSortedMap::operator [] failed", "dsortmap", 169);
        std::abort();
    }
    return GetByIndex(index);
}

template <typename A, typename T, typename K>
bool dsBaseSortedMap<A, T, K>::Find(K key, T& value) const {
    unsigned int index;
    if (!FindIndex(key, index))
        return false;
    this->CopyElems(&GetByIndex(index), &value, 1);
    return true;
}

template <typename A, typename T, typename K>
bool dsBaseSortedMap<A, T, K>::Add(K key, const T& value) {
    unsigned int index;
    if (FindIndex(key, index))
        return false;
    AddAt(index, key, value);
    return true;
}

template <typename A, typename T, typename K>
void dsBaseSortedMap<A, T, K>::AddAt(unsigned int index, K key, const T& value) {
    const dsSortedMapEntry<T, K> entry(CopyKey(key), value, *this);
    // Gives the key back if the array cannot grow. Not by a catch: callers may compile without it.
    struct Copied {
        const dsBaseSortedMap* map;
        K key;
        ~Copied() {
            if (map != nullptr)
                map->FreeKey(key);
        }
    } copied{this, entry.key};
    entries.Insert(index, 1, &entry);
    copied.map = nullptr;
}

template <typename A, typename T, typename K>
void dsBaseSortedMap<A, T, K>::RemoveByIndex(unsigned int index) {
    FreeKey(entries.GetDataPtr()[index].key);
    entries.RemoveAt(index, 1, nullptr);
}

template <typename A, typename T, typename K>
bool dsBaseSortedMap<A, T, K>::Remove(K key) {
    unsigned int index;
    if (!FindIndex(key, index))
        return false;
    RemoveByIndex(index);
    return true;
}

template <typename A, typename T, typename K>
[[gnu::always_inline]] inline dsBaseIter<T>* dsBaseSortedMap<A, T, K>::GetIter() const {
    using Entry = dsSortedMapEntry<T, K>;
    if constexpr (std::is_same_v<A, dsXArray<Entry>>) {
        return dsMapWalk<T, K>::Over(dsEntryIter<Entry>(entries));
    } else {
        std::unique_ptr<dsBaseIter<Entry>> walked(entries.GetIter());
        auto* iter = new dsSortedMapIter<T, K>(walked.get());
        static_cast<void>(walked.release());
        return iter;
    }
}

template <typename A, typename T, typename K>
bool dsBaseSortedMap<A, T, K>::IsConsistent() const {
    const auto* const stored = entries.GetDataPtr();
    for (unsigned int i = 1; i < entries.GetSize(); ++i)
        if (Compare(stored[i - 1].key, stored[i].key) >= 0)
            return false;
    return true;
}

extern template class dsSortedMapEntry<pmManageTask*, void*>;
extern template class dsBaseIter<pmManageTask*>;
extern template class dsBaseIter<dsSortedMapEntry<pmManageTask*, void*>>;
extern template class dsDataCollection<pmManageTask*>;
extern template class dsDataCollection<dsSortedMapEntry<pmManageTask*, void*>>;
extern template class dsDataMap<pmManageTask*, void*>;
extern template class dsDataMap<dsSortedMapEntry<pmManageTask*, void*>, unsigned int>;
extern template class dsArray<dsSortedMapEntry<pmManageTask*, void*>>;
extern template class dsStraightArray<dsSortedMapEntry<pmManageTask*, void*>>;
extern template class dsXArray<dsSortedMapEntry<pmManageTask*, void*>>;
extern template class dsArrayIter<dsSortedMapEntry<pmManageTask*, void*>>;
extern template class dsSortedMapIter<pmManageTask*, void*>;
extern template class dsBaseSortedMap<dsXArray<dsSortedMapEntry<pmManageTask*, void*>>,
                                      pmManageTask*, void*>;
extern template class dsBaseScalarMap<dsXArray<dsSortedMapEntry<pmManageTask*, void*>>,
                                      pmManageTask*, void*>;
extern template class dsScalarMap<pmManageTask*, void*>;

extern template class dsSortedMapEntry<dsStringCell*, const char*>;
extern template class dsBaseIter<dsStringCell*>;
extern template class dsBaseIter<dsSortedMapEntry<dsStringCell*, const char*>>;
extern template class dsDataCollection<dsStringCell*>;
extern template class dsDataCollection<dsSortedMapEntry<dsStringCell*, const char*>>;
extern template class dsDataMap<dsStringCell*, const char*>;
extern template class dsDataMap<dsSortedMapEntry<dsStringCell*, const char*>, unsigned int>;
extern template class dsArray<dsSortedMapEntry<dsStringCell*, const char*>>;
extern template class dsStraightArray<dsSortedMapEntry<dsStringCell*, const char*>>;
extern template class dsXArray<dsSortedMapEntry<dsStringCell*, const char*>>;
extern template class dsArrayIter<dsSortedMapEntry<dsStringCell*, const char*>>;
extern template class dsSortedMapIter<dsStringCell*, const char*>;
extern template class dsBaseSortedMap<dsXArray<dsSortedMapEntry<dsStringCell*, const char*>>,
                                      dsStringCell*, const char*>;
extern template class dsSortedMap<dsStringCell*, const char*>;
extern template class dsNonOwnerStringMap<dsStringCell*>;

#endif
