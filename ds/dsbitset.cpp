// SPDX-License-Identifier: MIT
#include "dsbitset.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>
#include <istream>
#include <limits>
#include <memory>
#include <new>
#include <ostream>
#include <string_view>

#include "ds/bitpack.h"
#include "ds/bitwords.h"

namespace {

/// The bytes of a set of `size` bits.
std::size_t BytesFor(unsigned long size) {
    return static_cast<std::size_t>(size >> 3) + 1;
}

/// Whether the number of bytes is an int, and no word that begins in the set ends behind the last
/// index that there is.
bool Fits(unsigned long size) {
    return size >> 3 < INT_MAX && size <= dsBitSet::none - bitwords::wordBits;
}

/// Does operation(T of `mine`, T of `theirs`), and stores the first in `to`.
template <typename T, typename Operation>
void CombineAt(const unsigned char* mine, const unsigned char* theirs, unsigned char* to,
               Operation operation, std::size_t width = sizeof(T)) {
    T left{};
    T right{};
    std::memcpy(&left, mine, width);
    std::memcpy(&right, theirs, width);
    operation(left, right);
    std::memcpy(to, &left, width);
}

} // namespace

dsBitSet::dsBitSet(unsigned long size)
    : capacityBits(0), onCount(0), onCountValid(true),
      bytes(Fits(size) ? new (std::nothrow) unsigned char[BytesFor(size)] : nullptr) {
    if (bytes == nullptr) {
        size = 0;
        bytes = new unsigned char[BytesFor(0)];
    }
    SetBitCount(size);
    capacityBits = size;
    std::memset(bytes, 0, BytesFor(size));
}

dsBitSet::dsBitSet(const dsBitSet& other)
    : dsDataCollection<int>(other), capacityBits(other.bitCount), onCount(other.onCount),
      onCountValid(false), bytes(new unsigned char[BytesFor(other.bitCount)]) {
    SetBitCount(other.bitCount);
    std::memcpy(bytes, other.bytes, BytesFor(bitCount));
}

dsBitSet::~dsBitSet() {
    delete[] bytes;
}

dsBaseIter<int>* dsBitSet::GetIter() const {
    return new dsBitSetIter(*this);
}

unsigned int dsBitSet::GetSize() const {
    // A count that the collection cannot express is its largest.
    return static_cast<unsigned int>(std::min<unsigned long>(CountOn(), UINT_MAX));
}

bool dsBitSet::IsEmpty() const {
    return CountOn() == 0;
}

unsigned long dsBitSet::CountOn() const {
    if (!onCountValid) {
        unsigned long count = 0;
        unsigned long first = 0;
        SetUp(count, first);
    }
    return onCount;
}

/// The counting scan. An empty set is counted afresh each time.
void dsBitSet::SetUp(unsigned long& count, unsigned long& first) const {
    count = 0;
    onCount = 0;
    const std::size_t found = bitwords::FindForward(bytes, 0, bitCount);
    first = found;
    if (found == bitCount) {
        first = 0;
        return;
    }
    const std::size_t start = found & ~std::size_t{7};
    count = bitwords::Count(bytes + start / 8, bitCount - start);
    onCount = count;
    onCountValid = true;
}

void dsBitSet::SetBitCount(unsigned long size) {
    bitCount = size;
    lastByteBits = BitOf(size);
    lastByte = ByteOf(size);
}

// The buffer may hold bits that were on before the set shrank, or that came with a copy or out of
// a stream: whatever growth brings into reach is cleared first.
bool dsBitSet::Resize(unsigned long size) {
    if (!Fits(size))
        return false;
    if (size <= capacityBits) {
        // As far as bytes of the new size go; what lies behind stays out of reach.
        bitwords::Assign(bytes, bitCount, std::min<std::size_t>(capacityBits, BytesFor(size) * 8),
                         false);
    } else if (ByteOf(size) <= lastByte) {
        bitwords::Assign(bytes, bitCount, size, false);
        capacityBits = size;
    } else {
        auto* const larger = new (std::nothrow) unsigned char[BytesFor(size)]();
        if (larger == nullptr)
            return false;
        std::memcpy(larger, bytes, BytesFor(bitCount));
        delete[] bytes;
        bytes = larger;
        ClearSpareBits();
        capacityBits = size;
    }
    SetBitCount(size);
    onCountValid = false;
    return true;
}

bool dsBitSet::Valid(unsigned long i) {
    return Exist(i) || (i != none && Resize(i + 1));
}

void dsBitSet::set(int on, int byteIndex, int bitIndex) {
    const int mask = 0x80 >> bitIndex;
    const int byte = bytes[byteIndex];
    bytes[byteIndex] = static_cast<unsigned char>(on != 0 ? byte | mask : byte & ~mask);
}

bool dsBitSet::SetOn(unsigned long i) {
    if (!Valid(i))
        return false;
    set(1, ByteOf(i), BitOf(i));
    onCountValid = false;
    return true;
}

bool dsBitSet::SetOff(unsigned long i) {
    if (!Valid(i))
        return false;
    set(0, ByteOf(i), BitOf(i));
    onCountValid = false;
    return true;
}

void dsBitSet::Clear() {
    std::memset(bytes, 0, BytesFor(bitCount));
    onCountValid = false;
}

void dsBitSet::ClearSpareBits() {
    bytes[lastByte] = static_cast<unsigned char>(bytes[lastByte] & ~(0xFF >> lastByteBits));
}

void dsBitSet::Fill(unsigned long from, unsigned long to) {
    onCountValid = false;
    if (from == 0 && to == 0) {
        std::memset(bytes, 0xFF, BytesFor(bitCount));
        ClearSpareBits();
        return;
    }
    bitwords::Assign(bytes, from, to == 0 ? bitCount : std::min(to, bitCount), true);
}

void dsBitSet::Reverse() {
    std::transform(bytes, bytes + BytesFor(bitCount), bytes,
                   [](unsigned char byte) { return static_cast<unsigned char>(~byte); });
    ClearSpareBits();
    onCountValid = false;
}

/// Does operation(word of this set, word of `other`) to each word, two at once.
template <typename Operation>
int dsBitSet::Combine(const dsBitSet& other, Operation operation) {
    using bitwords::Word;
    using TwoWords [[gnu::vector_size(16)]] = Word;
    onCountValid = false;
    if (bitCount != other.bitCount)
        return 0;
    unsigned char* const mine = bytes; // a copy: a store to bytes might change a member
    const unsigned char* const theirs = other.bytes;
    const std::size_t size = BytesFor(bitCount);
    if (size < sizeof(Word)) {
        CombineAt<Word>(mine, theirs, mine, operation, size);
        return 1;
    }
    // The last word overlaps the one before it, so it is made of what both were.
    const std::size_t tail = size - sizeof(Word);
    unsigned char last[sizeof(Word)];
    CombineAt<Word>(mine + tail, theirs + tail, last, operation);
    std::size_t done = 0;
    constexpr std::size_t step = 4 * sizeof(TwoWords);
    for (; size - done >= step; done += step)
        for (std::size_t i = done; i < done + step; i += sizeof(TwoWords))
            CombineAt<TwoWords>(mine + i, theirs + i, mine + i, operation);
    for (; size - done >= sizeof(Word); done += sizeof(Word))
        CombineAt<Word>(mine + done, theirs + done, mine + done, operation);
    std::memcpy(mine + tail, last, sizeof last);
    return 1;
}

int dsBitSet::operator=(const dsBitSet& other) {
    onCountValid = false;
    if (bitCount != other.bitCount)
        return 0;
    if (this != &other)
        std::memcpy(bytes, other.bytes, BytesFor(bitCount));
    return 1;
}

int dsBitSet::operator&=(const dsBitSet& other) {
    return Combine(other, [](auto& mine, const auto& theirs) { mine &= theirs; });
}

int dsBitSet::operator|=(const dsBitSet& other) {
    return Combine(other, [](auto& mine, const auto& theirs) { mine |= theirs; });
}

int dsBitSet::operator^=(const dsBitSet& other) {
    const int combined = Combine(other, [](auto& mine, const auto& theirs) { mine ^= theirs; });
    if (combined != 0)
        ClearSpareBits();
    return combined;
}

int dsBitSet::operator-=(const dsBitSet& other) {
    return Combine(other, [](auto& mine, const auto& theirs) { mine &= ~theirs; });
}

int dsBitSet::operator%=(const dsBitSet& other) {
    return Combine(other, [](auto& mine, const auto& theirs) { mine = theirs & ~mine; });
}

unsigned long dsBitSet::SearchNext(unsigned long i) const {
    if (!Exist(i))
        return none;
    std::size_t from = i + 1;
    if (from / 8 + bitwords::wordBytes <= BytesFor(bitCount)) { // most are near
        const auto near = bitwords::Load(bytes + from / 8) << (from & 7);
        if (near != 0) {
            from += static_cast<std::size_t>(std::countl_zero(near));
            return from < bitCount ? from : none;
        }
        from = (from & ~std::size_t{7}) + bitwords::wordBits;
    }
    const std::size_t found = bitwords::FindForward(bytes, from, bitCount);
    return found < bitCount ? found : none;
}

unsigned long dsBitSet::Previous(unsigned long i) const {
    if (!Exist(i))
        return none;
    const std::size_t found = bitwords::FindBackward(bytes, i);
    return found == i ? none : found;
}

unsigned long dsBitSet::First() const {
    return IsOn(0) ? 0 : Next(0);
}

unsigned long dsBitSet::Last() const {
    if (bitCount == 0)
        return none;
    return IsOn(bitCount - 1) ? bitCount - 1 : Previous(bitCount - 1);
}

unsigned long dsBitSet::GetIndex(unsigned long i) const {
    return Exist(i) ? bitwords::Count(bytes, i) : none;
}

unsigned long dsBitSet::ByIndex(unsigned long k) const {
    const std::size_t found = bitwords::Select(bytes, bitCount, k);
    return found == bitCount ? none : found;
}

void dsBitSet::InsertSegment(unsigned long pos, unsigned long count) {
    if (count == 0 || pos > bitCount || count > none - bitCount || !Fits(bitCount + count))
        return;
    const unsigned long old = bitCount;
    const unsigned long size = old + count;
    if (size > capacityBits) {
        if (BytesFor(size) > BytesFor(capacityBits)) {
            auto larger = std::make_unique<unsigned char[]>(BytesFor(size));
            std::memcpy(larger.get(), bytes, BytesFor(old));
            delete[] bytes;
            bytes = larger.release();
        }
        capacityBits = size;
    }
    SetBitCount(size);
    bitwords::Move(bytes, pos, pos + count, old - pos);
    bitwords::Assign(bytes, pos, pos + count, false);
    onCountValid = false;
}

void dsBitSet::RemoveSegment(unsigned long pos, unsigned long count) {
    if (pos > bitCount || count > bitCount - pos)
        return;
    const unsigned long left = bitCount - count;
    bitwords::Move(bytes, pos + count, pos, left - pos);
    SetBitCount(left);
    onCountValid = false;
}

int dsBitSet::Save(std::ostream& os) const {
    if (os.fail())
        return 0;
    const auto* const data = reinterpret_cast<const char*>(bytes);
    return Pack(data, static_cast<unsigned int>(lastByte) + 1, os) == 0 ? 1 : 0;
}

int dsBitSet::Restore(std::istream& is) {
    if (is.fail())
        return 0;
    onCountValid = false;
    const std::size_t size = BytesFor(bitCount);
    return UnpackAtMost(is, reinterpret_cast<char*>(bytes), size) == size ? 1 : 0;
}

dsBaseIter<int>* dsBitSetIter::Reproduce() {
    return new dsBitSetIter(*this);
}

void dsBitSetIter::SetAtFirst() {
    MoveTo(bitSet->First());
}

bool dsBitSetIter::Finished() const {
    return current == -1;
}

void dsBitSetIter::MoveToNext() {
    MoveTo(bitSet->Next(static_cast<unsigned long>(current)));
}

int& dsBitSetIter::Current() const {
    return current;
}

void dsBitSetIter::MoveTo(unsigned long index) {
    current = index <= INT_MAX ? static_cast<int>(index) : -1;
}

std::ostream& operator<<(std::ostream& os, const dsBitSet& set) {
    if (os.fail())
        return os;
    os << '[';
    std::string_view separator;
    for (unsigned long i = set.First(); i != dsBitSet::none && os; i = set.Next(i)) {
        char digits[std::numeric_limits<unsigned long>::digits10 + 1];
        const char* const end = std::to_chars(digits, digits + sizeof digits, i).ptr;
        os << separator << std::string_view(digits, static_cast<std::size_t>(end - digits));
        separator = ", ";
    }
    return os << ']';
}
