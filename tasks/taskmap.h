// SPDX-License-Identifier: MIT
//
// The file of managed tasks: every one that is started under its thread handle.
#ifndef PLINTH_TASKMAP_H
#define PLINTH_TASKMAP_H

#include "dsortmap.h"

/// Made by the first call, which load.cpp sees to. Whoever made a managed task in his constructor
/// called it before that constructor ended, so the file outlives him, wherever he lies.
dsScalarMap<pmManageTask*, void*>& TaskMap();

#endif
