// SPDX-License-Identifier: MIT
//
// The answers to the requests of one client after the other.
#ifndef PLINTH_EXAMPLES_FILESERV_SERVICE_H
#define PLINTH_EXAMPLES_FILESERV_SERVICE_H

#include "connection.h"
#include "folder.h"
#include "locks.h"
#include "protocol.h"

namespace fileserv {

class FileService {
public:
    explicit FileService(const ServedFolder& offered) : folder(offered) {}

    /// Serves one client until it goes, or until it is of no more use. The locks that it has taken
    /// are given back then.
    void Serve(Connection& connection);

private:
    // Each of these makes the answer, and those that move a file send it as well.
    void Answer(const Request& request, NamedLocks& locks, Connection& connection);
    errstatus MakeListing(const Request& request);
    errstatus TellOf(const char* name);
    errstatus TellSum(const char* name);
    void SendFile(const char* name, Connection& connection);
    errstatus TakeFile(const char* name, Connection& connection);
    void SendStatus(errstatus status, Connection& connection);

    const ServedFolder& folder;
    dsXArray<char> message{nullptr};
};

} // namespace fileserv

#endif
