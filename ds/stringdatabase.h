// SPDX-License-Identifier: MIT
//
// The database behind interned strings: every cell in use under its own text.
#ifndef PLINTH_STRINGDATABASE_H
#define PLINTH_STRINGDATABASE_H

#include "dsortmap.h"

/// Made by the first call, which load.cpp sees to. Whoever made a unique string in his constructor
/// called it before that constructor ended, so the database outlives him, wherever he lies.
dsNonOwnerStringMap<dsStringCell*>& StringDatabase();

#endif
