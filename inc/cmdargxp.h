// SPDX-License-Identifier: MIT
//
// Expansion of "-argfile NAME" on a command line: the pair is replaced, in place, by the lines of
// that file, one argument a line. What stands behind the last line feed of the file is dropped, and
// an "-argfile" in it is an argument like any other. docs/formats.md describes the file.
//
// For one thread, at the start of a program.
#ifndef PLINTH_CMDARGXP_H
#define PLINTH_CMDARGXP_H

#include "outside/zelexport.h"

/// Replaces `argc` and `argv` by the expanded list: a new vector of exactly `argc` pointers,
/// without the null pointer that stands behind those of main, for FreeCommandArguments. The old
/// vector and its strings are left alone and stay the caller's. With `echo` the new list is printed
/// to standard output, if there was anything to expand.
///
/// An "-argfile" without a name behind it, and a file that cannot be read or that has a line of
/// 65536 bytes or more, is told on standard error and then reported as fatal, with a null message
/// and the source "cmdargxp". If that report returns, `argc` and `argv` are as they were.
ZEL_EXPORT void ExpandCommandArguments(int& argc, char**& argv, bool echo);

/// Releases what ExpandCommandArguments has made, and sets `argv` to null. `argc` is the number
/// that came with it.
ZEL_EXPORT void FreeCommandArguments(int argc, char**& argv);

#endif
