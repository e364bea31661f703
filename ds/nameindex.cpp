// SPDX-License-Identifier: MIT
#include "ds/nameindex.h"

#include <cstring>
#include <new>
#include <utility>

#include "dsunique.h"

namespace {

/// The bytes from `text` on as a number, in the order of the host.
template <typename Word>
std::uint64_t Read(const char* text) {
    Word word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

} // namespace

std::uint32_t NameIndex::HashOf(const char* text) {
    const std::size_t length = std::strlen(text);
    std::uint64_t hash = length;
    const auto mix = [&](std::uint64_t word) {
        hash = (hash ^ word) * 0x9E3779B97F4A7C15;
        hash ^= hash >> 32;
    };
    // The last word may overlap the one before.
    const char* const end = text + length;
    if (length >= 8) {
        for (; end - text > 8; text += 8)
            mix(Read<std::uint64_t>(text));
        mix(Read<std::uint64_t>(end - 8));
    } else if (length >= 4) {
        mix(Read<std::uint32_t>(text) << 32 | Read<std::uint32_t>(end - 4));
    } else {
        for (; text != end; ++text)
            mix(Read<unsigned char>(text));
    }
    return static_cast<std::uint32_t>(hash);
}

dsStringCell* NameIndex::Find(const char* text, std::uint32_t hash) const {
    std::size_t at = hash & last;
    for (std::size_t tried = 0; tried < reach && places[at].cell != nullptr; ++tried) {
        if (places[at].hash == hash && std::strcmp(places[at].cell->GetString(), text) == 0)
            return places[at].cell;
        at = Behind(at);
    }
    return nullptr;
}

void NameIndex::Add(dsStringCell* cell, std::uint32_t hash) {
    if (count > last / 2)
        MoveTo((last + 1) * 2);
    Enter({cell, hash});
}

/// Takes the place of another where none is free within reach.
void NameIndex::Enter(const Place& entry) {
    std::size_t at = entry.hash & last;
    std::size_t tried = 1;
    while (tried < reach && places[at].cell != nullptr) {
        at = Behind(at);
        ++tried;
    }
    if (places[at].cell == nullptr)
        ++count;
    places[at] = entry;
}

void NameIndex::Remove(const dsStringCell* cell, std::uint32_t hash) {
    std::size_t hole = hash & last;
    for (std::size_t tried = 0; places[hole].cell != cell; ++tried) {
        if (tried == reach || places[hole].cell == nullptr)
            return;
        hole = Behind(hole);
    }
    // Those behind that may lie in the place that becomes free, as near to theirs, move there.
    for (std::size_t at = Behind(hole), gap = 1; gap < reach && places[at].cell != nullptr;
         at = Behind(at), ++gap) {
        if (((at - places[at].hash) & last) >= gap) {
            places[hole] = places[at];
            hole = at;
            gap = 0;
        }
    }
    places[hole].cell = nullptr;
    --count;
    if (last >= fewest && count < last / 8)
        MoveTo((last + 1) / 2);
}

/// Stays as it is if there is no memory.
void NameIndex::MoveTo(std::size_t capacity) {
    Place* const target = capacity > fewest ? new (std::nothrow) Place[capacity]() : first;
    if (target == nullptr)
        return;
    Place* const old = std::exchange(places, target);
    const std::size_t oldLast = std::exchange(last, capacity - 1);
    count = 0;
    for (std::size_t i = 0; i <= oldLast; ++i)
        if (old[i].cell != nullptr)
            Enter(old[i]);
    if (old != first)
        delete[] old;
    else
        std::memset(first, 0, sizeof first);
}
