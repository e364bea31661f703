// SPDX-License-Identifier: MIT
//
// Objects that are there for every initialiser and every destructor of a program, in whatever
// order these run: made by the first call that asks for one, and never destroyed.
#ifndef PLINTH_LASTING_H
#define PLINTH_LASTING_H

#include <new>

/// The one map of this type.
template <typename Map>
Map& LastingMap() {
    alignas(Map) static char place[sizeof(Map)];
    static Map& made = *new (place) Map;
    return made;
}

/// Gives back the memory of a map that is empty. It can be used as before.
template <typename Map>
void Trim(Map& map) {
    if (map.GetSize() != 0)
        return;
    map.~Map();
    new (&map) Map;
}

#endif
