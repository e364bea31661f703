// SPDX-License-Identifier: MIT
//
// Where the time of a program goes. Each entry is made when it is first used and prints its line
// at the end of the program.
#ifndef PLINTH_EXAMPLES_FILESERV_PROFILE_H
#define PLINTH_EXAMPLES_FILESERV_PROFILE_H

#include <zelprof.h>

namespace fileserv {

struct Profile {
    static ProfileEntry& Receiving() {
        static ProfileEntry entry("waiting for messages");
        return entry;
    }
    static ProfileEntry& Sending() {
        static ProfileEntry entry("sending messages");
        return entry;
    }
    static ProfileEntry& Reading() {
        static ProfileEntry entry("reading files");
        return entry;
    }
    static ProfileEntry& Writing() {
        static ProfileEntry entry("writing files");
        return entry;
    }
    static ProfileEntry& Summing() {
        static ProfileEntry entry("checksums");
        return entry;
    }
    static ProfileEntry& Looking() {
        static ProfileEntry entry("names and folders");
        return entry;
    }
};

} // namespace fileserv

#endif
