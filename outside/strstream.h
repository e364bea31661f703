// SPDX-License-Identifier: MIT
//
// The one door to <strstream>. The interface names std::strstream, which the standard has
// deprecated for as long as it has existed; the warning that the header gives to whoever
// includes it is of no use to our callers.
#ifndef PLINTH_STRSTREAM_H
#define PLINTH_STRSTREAM_H

#pragma push_macro("__DEPRECATED")
#undef __DEPRECATED
#include <strstream>
#pragma pop_macro("__DEPRECATED")

#endif
