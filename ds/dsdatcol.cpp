// SPDX-License-Identifier: MIT
//
// The element types in use, instantiated once for every program that links the library.
#include "dsdatcol.h"

template class dsBaseIter<char>;
template class dsBaseIter<int>;
template class dsBaseIter<char*>;
template class dsBaseIter<const char*>;
template class dsDataCollection<char>;
template class dsDataCollection<int>;
template class dsDataCollection<char*>;
template class dsDataCollection<const char*>;
template class dsDataMap<char, unsigned int>;
template class dsDataMap<char*, unsigned int>;
template class dsDataMap<const char*, unsigned int>;
template class dsArray<char>;
template class dsArray<char*>;
template class dsArray<const char*>;
template class dsStraightArray<char>;
template class dsStraightArray<char*>;
template class dsStraightArray<const char*>;
template class dsXArray<char>;
template class dsXArray<char*>;
template class dsXArray<const char*>;
template class dsXArray<pfuDirPath*>;
template class dsArrayIter<char>;
template class dsArrayIter<char*>;
template class dsArrayIter<const char*>;
