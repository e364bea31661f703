// SPDX-License-Identifier: MIT
//
// What the library shows to the programs that link it. Everything is compiled with hidden
// visibility; only what carries ZEL_EXPORT can be reached from outside, and the checked-in list
// of exported symbols says what that comes to.
#ifndef PLINTH_ZELEXPORT_H
#define PLINTH_ZELEXPORT_H

#define ZEL_EXPORT __attribute__((visibility("default"))) ///< before a class or a function

#endif
