// SPDX-License-Identifier: MIT
//
// The root of every container: the element policy, the keyed interface, the iterator, and the one
// store that all of them stand on, the growable array dsXArray.
//
// How dsXArray differs from std::vector:
//  - Elements are plain bytes. They are moved by block copy and never constructed or destroyed;
//    what Resize adds holds whatever the buffer held. What pointers point to is the caller's. None
//    is aligned to more than std::max_align_t.
//  - The capacity counts whole blocks (256 bytes' worth unless the control says otherwise). The
//    allocator below keeps slack of its own, so appending is linear in time all the same.
//  - How elements are allocated and copied is a set of virtual operations. A derived class sees
//    every movement.
//  - It has a run-time interface: code can work on a dsArray or a dsDataMap without knowing which
//    container it has. Adding, removing and finding by key are for the maps; on an array they are
//    fatal reports.
//  - Nothing is checked. An index or a range that is outside the array is the caller's bug.
//  - There is no begin() and no end(): walk by index, by GetDataPtr, or by an iterator. And const
//    goes no deeper than the array: the elements of a const one can be written.
//
// Like std::vector, an array may be read by many threads at once and changed by one alone, and
// every address into it is void once the buffer has moved. An operation that runs out of memory,
// or is asked for a size that unsigned int cannot count in whole blocks, throws what `new` throws
// and leaves the array as it was.
#ifndef PLINTH_DSDATCOL_H
#define PLINTH_DSDATCOL_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#ifdef __cpp_rtti
#include <typeinfo>
#endif

#include "outside/quillmarsh/abort.h"
#include "outside/quillmarsh/memory.h"
#include "outside/zelexport.h"

// Containers of these are exported, so their elements must be visible. An attribute would have to
// stand at the first declaration, which may be the class itself.
#pragma GCC visibility push(default)
class pfuDirPath;
#pragma GCC visibility pop

/// Whether `object` is a `Class` and of no class that derives from it: nobody overrides anything,
/// and what a virtual operation would do may be done in place. Without type information nobody can
/// tell: false.
template <typename Class, typename Base>
bool dsIsExactly([[maybe_unused]] const Base& object) {
#ifdef __cpp_rtti
    // By address: it may be false where several modules have the class, and it is never wrongly
    // true.
    return __builtin_expect(&typeid(object) == &typeid(Class), 1);
#else
    return false;
#endif
}

/// Walks the elements of a container, which must outlive the iterator.
template <typename T>
class ZEL_EXPORT dsBaseIter {
public:
    dsBaseIter() = default;
    dsBaseIter& operator=(const dsBaseIter&) = delete;

    /// A new iterator at the same position. The caller deletes it.
    virtual dsBaseIter<T>* Reproduce() = 0;
    virtual ~dsBaseIter() = default;
    virtual void SetAtFirst() = 0;     ///< to the first element, or to the end where there is none
    virtual bool Finished() const = 0; ///< behind the last element
    /// Requires: the iterator is not finished; likewise for Current.
    virtual void MoveToNext() = 0;
    virtual T& Current() const = 0; ///< the element itself

protected:
    dsBaseIter(const dsBaseIter&) = default;
};

/// What every collection of T can do, and how it handles the storage of elements.
template <typename T>
class ZEL_EXPORT dsDataCollection {
public:
    /// Storage for `count` elements from zelAlloc.
    virtual T* AllocElems(unsigned int count) const {
        return static_cast<T*>(zelAlloc(BytesOf(count)));
    }
    /// The same elements in storage for `newCount`. `used` of them are in use, for a policy that
    /// wants to move no more than that.
    virtual T* ReallocElems(T* elems, [[maybe_unused]] unsigned int used,
                            unsigned int newCount) const {
        return static_cast<T*>(zelReAlloc(elems, BytesOf(newCount)));
    }
    /// A hook for derived classes; the library never calls it.
    virtual void CleanupElems([[maybe_unused]] T* elems,
                              [[maybe_unused]] unsigned int count) const {}
    /// Releases the storage and makes `elems` null.
    virtual void FreeElems(T*& elems) const {
        zelFree(elems);
        elems = nullptr;
    }
    /// The ranges may overlap, and may be null when `count` is 0.
    virtual void CopyElems(const T* source, T* target, unsigned int count) const {
        if (count == 1) // of a constant size: no call
            std::memmove(static_cast<void*>(target), source, sizeof(T));
        else if (count != 0)
            std::memmove(static_cast<void*>(target), source, count * sizeof(T));
    }
    virtual ~dsDataCollection() = default;
    /// A new iterator at the first element. The caller deletes it.
    virtual dsBaseIter<T>* GetIter() const = 0;
    virtual unsigned int GetSize() const = 0;               ///< the number of elements
    virtual bool IsEmpty() const { return GetSize() == 0; } ///< no elements

protected:
    dsDataCollection() = default;
    dsDataCollection(const dsDataCollection&) = default;
    dsDataCollection& operator=(const dsDataCollection&) = default;

    /// The bytes of `count` elements; a number that size_t cannot hold is exhaustion.
    static std::size_t BytesOf(unsigned int count) {
        if (std::size_t{count} > SIZE_MAX / sizeof(T))
            zelOutOfMemory();
        return count * sizeof(T);
    }
};

/// A collection whose elements of type T are reached by a key. Add, Remove and Find are fatal
/// reports in a class that does not override them, and false if the report comes back.
template <typename T, typename K>
class ZEL_EXPORT dsDataMap : public virtual dsDataCollection<T> {
public:
    virtual T& operator[](K key) const = 0;   ///< the value itself. Requires: the key is there.
    virtual bool Contains(K key) const = 0;   ///< whether there is an entry
    virtual bool Add(K key, const T& value);  ///< a new entry; false if the key is there
    virtual bool Remove(K key);               ///< false if the key is not there
    virtual bool Find(K key, T& value) const; ///< copies the value; false without the key
};

/// A map from indices to elements. Contains asks whether an index is valid.
template <typename T>
class ZEL_EXPORT dsArray : public dsDataMap<T, unsigned int> {
public:
    bool Contains(unsigned int index) const override { return index < this->GetSize(); }
    dsBaseIter<T>* GetIter() const override;
};

/// An array whose elements lie one behind the other.
template <typename T>
class ZEL_EXPORT dsStraightArray : public dsArray<T> {
public:
    T& operator[](unsigned int index) const override { return GetDataPtr()[index]; }
    /// The first element; null while nothing was ever allocated.
    virtual T* GetDataPtr() const = 0;
};

/// How one dsXArray grows: in blocks of `blockSize` elements (0: the default), and with `shrink`
/// also back again.
class dsXACtrl {
public:
    /// Block size, and whether to shrink.
    dsXACtrl(unsigned int elements, bool follow) : shrink(follow), blockSize(elements) {}

    bool shrink;            ///< gives memory back when the array gets smaller
    unsigned int blockSize; ///< elements in a block; 0 is as many as 256 bytes hold
};

/// The growable array: elements in one block, moved as bytes.
template <typename T>
class ZEL_EXPORT dsXArray : public dsStraightArray<T> {
    static_assert(std::is_trivially_copyable_v<T>, "elements are moved as bytes");

public:
    /// An empty array without a buffer. The control is read here and not kept; a null one asks for
    /// the defaults: blocks of 256 bytes, and no shrinking.
    explicit dsXArray(const dsXACtrl* control) : shrink(false), blockSize(0) { Init(control); }
    dsXArray(const dsXArray&) = delete;
    dsXArray& operator=(const dsXArray&) = delete;
    ~dsXArray() override {
        zelFree(data);
        data = nullptr;
    }

    unsigned int GetSize() const override { return size; }
    T* GetDataPtr() const override { return data; }

    /// Elements that come in are not cleared. Without `shrink` the buffer never gets smaller.
    void Resize(unsigned int newSize) {
        if (!shrink && newSize <= capacity)
            size = newSize;
        else
            MoveTo(newSize);
    }
    /// Requires: `pos` is not beyond the end, and `source` not in this array, which may move
    /// before `source` is read. The same holds for the three that follow.
    void Insert(unsigned int pos, unsigned int count, const T* source) {
        const unsigned int old = size;
        if (count > UINT32_MAX - old)
            zelOutOfMemory();
        Resize(old + count);
        T* const gap = data + pos;
        this->CopyElems(gap, gap + count, old - pos);
        this->CopyElems(source, gap, count);
    }
    void Insert(unsigned int pos, const T& element) { Insert(pos, 1, &element); } ///< one element
    /// At the end.
    void Append(unsigned int count, const T* source) {
        const unsigned int old = size;
        // Without a test of its own: no elements look like too many.
        if (__builtin_expect(count - 1 < capacity - old, 1) && dsIsExactly<dsXArray>(*this)) {
            T* const gap = data + old;
            // Before the copy, behind which a compiler has to think that the array has changed.
            size = old + count;
            std::memmove(static_cast<void*>(gap), source, count * sizeof(T));
        } else {
            AppendWithRoom(count, source);
        }
    }
    /// One at the end.
    void operator+=(const T& element) {
        const unsigned int old = size;
        if (__builtin_expect(old < capacity, 1) && dsIsExactly<dsXArray>(*this)) {
            // Not assigned: an element may have members that are constant.
            std::memmove(static_cast<void*>(data + old), &element, sizeof(T));
        } else if constexpr (std::is_scalar_v<T>) {
            const T copy = element; // so that what a loop appends need not be in memory
            AppendWithRoom(1, &copy);
        } else {
            AppendWithRoom(1, &element);
        }
        // On either way, and last: so a compiler knows the size in the next round of a loop.
        size = old + 1;
    }
    /// Takes `count` elements out; a non-null `removed` receives them.
    void RemoveAt(unsigned int pos, unsigned int count, T* removed) {
        T* const gap = data + pos;
        if (removed != nullptr)
            this->CopyElems(gap, removed, count);
        this->CopyElems(gap + count, gap, size - (pos + count));
        Resize(size - count);
    }
    void Clear() { Resize(0); } ///< to size 0

protected:
    /// Starts empty and without a buffer, freeing nothing. A null control leaves the policy.
    void Init(const dsXACtrl* control);
    /// What must hold after every operation; for tests.
    bool IsConsistent() const {
        return blockSize != 0 && size <= capacity && capacity % blockSize == 0 &&
               (capacity == 0 || data != nullptr);
    }

private:
    unsigned int OptimizeSize(unsigned int count);
    void MoveTo(unsigned int newSize);
    void AppendWithRoom(unsigned int count, const T* source);

    T* data;
    unsigned int size;
    unsigned int capacity;
    bool shrink;
    unsigned int blockSize;
};

/// Walks an array by index, so that it survives a move of the elements and follows the size.
template <typename T>
class ZEL_EXPORT dsArrayIter : public dsBaseIter<T> {
public:
    /// Requires: `walked` outlives the iterator.
    explicit dsArrayIter(const dsArray<T>& walked) : index(0), array(&walked) {}
    dsArrayIter(const dsArrayIter&) = default;

    dsBaseIter<T>* Reproduce() override { return new dsArrayIter(*this); }
    void SetAtFirst() override { index = 0; }
    bool Finished() const override { return index >= array->GetSize(); }
    void MoveToNext() override { ++index; }
    T& Current() const override { return (*array)[index]; }

private:
    unsigned int index;
    const dsArray<T>* array;
};

// The reports name the place where callers have always been told to look.
template <typename T, typename K>
bool dsDataMap<T, K>::Add(K, const T&) {
    zelAbort("dsDataMap::Add ()", "dsdatcol", 299);
    return false;
}

template <typename T, typename K>
bool dsDataMap<T, K>::Remove(K) {
    zelAbort("dsDataMap::Remove ()", "dsdatcol", 303);
    return false;
}

template <typename T, typename K>
bool dsDataMap<T, K>::Find(K, T&) const {
    zelAbort("dsDataMap::Find ()", "dsdatcol", 307);
    return false;
}

template <typename T>
dsBaseIter<T>* dsArray<T>::GetIter() const {
    return new dsArrayIter<T>(*this);
}

template <typename T>
void dsXArray<T>::Init(const dsXACtrl* control) {
    size = 0;
    capacity = 0;
    data = nullptr;
    if (control != nullptr) {
        shrink = control->shrink;
        blockSize = control->blockSize;
    }
    if (blockSize == 0)
        blockSize = sizeof(T) < 256 ? 256 / sizeof(T) : 1;
}

/// `count` rounded up to whole blocks.
template <typename T>
unsigned int dsXArray<T>::OptimizeSize(unsigned int count) {
    if (count == 0)
        return 0;
    // A block more, as appending asks for, takes no division.
    if (count > capacity && count - capacity <= blockSize && capacity <= UINT32_MAX - blockSize)
        return capacity + blockSize;
    const unsigned int blocks = (count - 1) / blockSize + 1;
    if (blocks > UINT32_MAX / blockSize)
        zelOutOfMemory();
    return blocks * blockSize;
}

template <typename T>
void dsXArray<T>::MoveTo(unsigned int newSize) {
    const unsigned int target = OptimizeSize(newSize);
    if (target != capacity) {
        if (data == nullptr)
            data = this->AllocElems(target);
        else if (dsIsExactly<dsXArray>(*this))
            data = this->dsDataCollection<T>::ReallocElems(data, size, target);
        else
            data = this->ReallocElems(data, size, target);
        capacity = target;
    }
    size = newSize;
}

/// Append where there is no room yet, or where a derived class wants to see it.
template <typename T>
[[gnu::flatten]] void dsXArray<T>::AppendWithRoom(unsigned int count, const T* source) {
    const unsigned int old = size;
    if (!dsIsExactly<dsXArray>(*this) || count > UINT32_MAX - old) {
        Insert(old, count, source);
        return;
    }
    Resize(old + count);
    this->dsDataCollection<T>::CopyElems(source, data + old, count);
}

extern template class dsBaseIter<char>;
extern template class dsBaseIter<int>;
extern template class dsBaseIter<char*>;
extern template class dsBaseIter<const char*>;
extern template class dsDataCollection<char>;
extern template class dsDataCollection<int>;
extern template class dsDataCollection<char*>;
extern template class dsDataCollection<const char*>;
extern template class dsDataMap<char, unsigned int>;
extern template class dsDataMap<char*, unsigned int>;
extern template class dsDataMap<const char*, unsigned int>;
extern template class dsArray<char>;
extern template class dsArray<char*>;
extern template class dsArray<const char*>;
extern template class dsStraightArray<char>;
extern template class dsStraightArray<char*>;
extern template class dsStraightArray<const char*>;
extern template class dsXArray<char>;
extern template class dsXArray<char*>;
extern template class dsXArray<const char*>;
extern template class dsXArray<pfuDirPath*>;
extern template class dsArrayIter<char>;
extern template class dsArrayIter<char*>;
extern template class dsArrayIter<const char*>;

#endif
