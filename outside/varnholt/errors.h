// SPDX-License-Identifier: MIT
//
// System errors as results. The values of errstatus stand in errstatus.h, on the floor above;
// the ground only knows that there is such a type.
#ifndef PLINTH_VARNHOLT_ERRORS_H
#define PLINTH_VARNHOLT_ERRORS_H

#include "outside/zelexport.h"

enum errstatus : int;

/// The calling thread's last system error as a result: call it at once after the failure. It
/// gives errOK where no error stands, as after the orderly end of a connection, and errSystem for
/// an error that has no value of its own.
ZEL_EXPORT errstatus errMapError();

#endif
