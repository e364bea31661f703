// SPDX-License-Identifier: MIT
//
// The maps in use: of tasks by their handles, and of string cells by their texts.
#include "dsortmap.h"

template class dsSortedMapEntry<pmManageTask*, void*>;
template class dsBaseIter<pmManageTask*>;
template class dsBaseIter<dsSortedMapEntry<pmManageTask*, void*>>;
template class dsDataCollection<pmManageTask*>;
template class dsDataCollection<dsSortedMapEntry<pmManageTask*, void*>>;
template class dsDataMap<pmManageTask*, void*>;
template class dsDataMap<dsSortedMapEntry<pmManageTask*, void*>, unsigned int>;
template class dsArray<dsSortedMapEntry<pmManageTask*, void*>>;
template class dsStraightArray<dsSortedMapEntry<pmManageTask*, void*>>;
template class dsXArray<dsSortedMapEntry<pmManageTask*, void*>>;
template class dsArrayIter<dsSortedMapEntry<pmManageTask*, void*>>;
template class dsSortedMapIter<pmManageTask*, void*>;
template class dsBaseSortedMap<dsXArray<dsSortedMapEntry<pmManageTask*, void*>>, pmManageTask*,
                               void*>;
template class dsBaseScalarMap<dsXArray<dsSortedMapEntry<pmManageTask*, void*>>, pmManageTask*,
                               void*>;
template class dsScalarMap<pmManageTask*, void*>;

template class dsSortedMapEntry<dsStringCell*, const char*>;
template class dsBaseIter<dsStringCell*>;
template class dsBaseIter<dsSortedMapEntry<dsStringCell*, const char*>>;
template class dsDataCollection<dsStringCell*>;
template class dsDataCollection<dsSortedMapEntry<dsStringCell*, const char*>>;
template class dsDataMap<dsStringCell*, const char*>;
template class dsDataMap<dsSortedMapEntry<dsStringCell*, const char*>, unsigned int>;
template class dsArray<dsSortedMapEntry<dsStringCell*, const char*>>;
template class dsStraightArray<dsSortedMapEntry<dsStringCell*, const char*>>;
template class dsXArray<dsSortedMapEntry<dsStringCell*, const char*>>;
template class dsArrayIter<dsSortedMapEntry<dsStringCell*, const char*>>;
template class dsSortedMapIter<dsStringCell*, const char*>;
template class dsBaseSortedMap<dsXArray<dsSortedMapEntry<dsStringCell*, const char*>>,
                               dsStringCell*, const char*>;
template class dsSortedMap<dsStringCell*, const char*>;
template class dsNonOwnerStringMap<dsStringCell*>;
