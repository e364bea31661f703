// SPDX-License-Identifier: MIT
//
// The file of managed tasks: every one that is started under its thread handle.
#ifndef PLINTH_TASKMAP_H
#define PLINTH_TASKMAP_H

#include "dsortmap.h"

/// There for every constructor and destructor of static objects; load.cpp makes it at the latest.
dsScalarMap<pmManageTask*, void*>& TaskMap();

#endif
