// SPDX-License-Identifier: MIT
//
// A growable vector of bits with the algebra of a set, and the packed form in which it is stored.
//
// How dsBitSet differs from std::vector<bool>:
//  - It is a collection of int: its elements are the indices of the bits that are on, its size as
//    a collection is how many there are, and a walk visits them in ascending order.
//  - Setting a bit beyond the end grows the set; asking for one there gives off.
//  - Only a set of the same size can be combined with it or assigned to it: the operators give 1,
//    and for a set of another size 0 and no change. The size itself cannot be asked.
//  - Next, Previous, GetIndex and ByIndex search it, InsertSegment and RemoveSegment move what
//    lies behind, Save and Restore store it.
//
// The number of bits that are on is kept until the next change, also by GetSize and IsEmpty, which
// are const all the same: even threads that only read a set must take turns. A set of n bits
// occupies n / 8 + 1 bytes, bit 0 on top of byte 0. It never gets smaller storage.
#ifndef PLINTH_DSBITSET_H
#define PLINTH_DSBITSET_H

#include <iosfwd>

#include "dsdatcol.h"
#include "outside/zelexport.h"

/// A set of indices, and a row of bits that are on or off.
class ZEL_EXPORT dsBitSet : public dsDataCollection<int> {
public:
    /// What searches give when there is nothing to report.
    static constexpr unsigned long none = ~0UL;

    /// All bits off. Where no buffer can be had, the set has size 0.
    explicit dsBitSet(unsigned long size);
    dsBitSet(const dsBitSet& other); ///< a set of the same size
    ~dsBitSet() override;

    /// A new iterator, which stands at index 0 until SetAtFirst is called.
    dsBaseIter<int>* GetIter() const override;
    /// How many bits are on.
    unsigned int GetSize() const override;
    bool IsEmpty() const override;

    /// Bits that come in are off. False, and no change, if no buffer can be had or if the size is
    /// one that no index could follow.
    bool Resize(unsigned long size);

    /// Off for what is outside.
    bool IsOn(unsigned long i) const { return Exist(i) && inf(ByteOf(i), BitOf(i)) != 0; }
    /// Both grow the set up to `i`; false, and no change, if that fails.
    bool SetOn(unsigned long i);
    bool SetOff(unsigned long i); ///< turns one bit off

    void Clear(); ///< turns every bit off
    /// Turns on [from, to). A `to` of 0 means up to the end, so Fill(0, 0) turns on every bit.
    /// It never grows the set.
    void Fill(unsigned long from, unsigned long to);
    void Reverse(); ///< off becomes on, on becomes off

    int operator=(const dsBitSet& other);  ///< takes the bits of `other`
    int operator&=(const dsBitSet& other); ///< what both hold
    int operator|=(const dsBitSet& other); ///< what either holds
    int operator^=(const dsBitSet& other); ///< what one of the two holds and the other does not
    /// What only this set holds.
    int operator-=(const dsBitSet& other);
    /// What only `other` holds.
    int operator%=(const dsBitSet& other);

    /// The nearest index above or below `i` that is on. None for an `i` outside the set.
    unsigned long Next(unsigned long i) const {
        // In a dense set the next bit is likely on, and a guess takes no time.
        const unsigned long next = i + 1;
        return next != 0 && IsOn(next) ? next : SearchNext(i);
    }
    unsigned long Previous(unsigned long i) const; ///< the one below
    unsigned long First() const;                   ///< the lowest index that is on
    unsigned long Last() const;                    ///< the highest one
    /// How many bits below `i` are on; none for an `i` outside the set.
    unsigned long GetIndex(unsigned long i) const;
    /// The index with `k` on bits below it: the inverse of GetIndex.
    unsigned long ByIndex(unsigned long k) const;

    /// Opens a gap of `count` off bits at `pos`; nothing happens for a `pos` behind the end.
    void InsertSegment(unsigned long pos, unsigned long count);
    /// Takes out `count` bits at `pos`; nothing happens unless all of them are there.
    void RemoveSegment(unsigned long pos, unsigned long count);

    /// Stores the bits, not the size. 1, or 0 if the stream fails.
    int Save(std::ostream& os) const;
    /// Reads the rest of the stream as what a set of this size has stored. 1, or 0 for anything
    /// else, in which case the set holds what could be decoded. A set whose first byte is an
    /// ASCII digit cannot be told from its count: its block gives 0.
    int Restore(std::istream& is);

private:
    static int ByteOf(unsigned long i) { return static_cast<int>(i >> 3); }
    static int BitOf(unsigned long i) { return static_cast<int>(i & 7); }
    bool Exist(unsigned long i) const { return i < bitCount; }
    bool Valid(unsigned long i);
    int inf(int byteIndex, int bitIndex) const { return bytes[byteIndex] >> (7 - bitIndex) & 1; }
    void set(int on, int byteIndex, int bitIndex);
    unsigned long SearchNext(unsigned long i) const;
    void SetBitCount(unsigned long size);
    void SetUp(unsigned long& count, unsigned long& first) const;
    unsigned long CountOn() const;
    void ClearSpareBits();
    template <typename Operation>
    int Combine(const dsBitSet& other, Operation operation);

    unsigned long bitCount;
    unsigned long capacityBits; ///< sizes up to this need no new buffer
    int lastByteBits;           ///< bits in use in the last byte, 0 to 7
    int lastByte;
    mutable unsigned long onCount;
    mutable bool onCountValid;
    unsigned char* bytes; ///< owned; its bits from bitCount on mean nothing
};

/// Walks the indices that are on, and sees changes of the set from the next step on. The walk
/// ends before the first index that an int cannot hold.
class ZEL_EXPORT dsBitSetIter : public dsBaseIter<int> {
public:
    /// Stands at index 0, on or off: call SetAtFirst before a walk.
    explicit dsBitSetIter(const dsBitSet& walked) : current(0), bitSet(&walked) {}
    dsBitSetIter(const dsBitSetIter&) = default;

    dsBaseIter<int>* Reproduce() override;
    void SetAtFirst() override;
    bool Finished() const override;
    void MoveToNext() override;
    int& Current() const override;

private:
    void MoveTo(unsigned long index);

    mutable int current; ///< -1 past the end
    const dsBitSet* bitSet;
};

/// Writes the indices that are on as "[1, 5]".
ZEL_EXPORT std::ostream& operator<<(std::ostream& os, const dsBitSet& set);

/// Writes `count` bytes in packed form (docs/formats.md): each row of at most 255 bytes of 0
/// becomes a 0 and its length, and every other byte stands for itself, so that each has to be
/// looked at. 0, or 1 if there are none or the stream fails.
ZEL_EXPORT int Pack(const char* data, unsigned int count, std::ostream& os);

/// Reads a packed block, which is the rest of the stream. The bytes that it held; 0 for a block
/// that breaks off inside a run.
///
/// Requires: `target` has room for all of them.
ZEL_EXPORT unsigned int Unpack(std::istream& is, char* target);

#endif
