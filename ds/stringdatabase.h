// SPDX-License-Identifier: MIT
//
// The database behind interned strings: every cell in use under its own text.
#ifndef PLINTH_STRINGDATABASE_H
#define PLINTH_STRINGDATABASE_H

#include "dsortmap.h"

/// There for every constructor and destructor of static objects; load.cpp makes it at the latest.
dsNonOwnerStringMap<dsStringCell*>& StringDatabase();

#endif
