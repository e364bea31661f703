// SPDX-License-Identifier: MIT
//
// The record of a found file.
#ifndef PLINTH_WIN32_FILES_H
#define PLINTH_WIN32_FILES_H

/// An entry of a directory: its name alone, with room for all that a path can hold.
struct WIN32_FIND_DATAA {
    char cFileName[1024];
};

#endif
