// SPDX-License-Identifier: MIT
//
// The bytes of files: read, replaced as a whole or not at all, summed up, and moved over a
// connection in blocks. Both sides use the same; paths are of either form, names in the current
// folder included.
//
// A block is a message of its own: a status, and then bytes of the file up to the end of the
// message. One without bytes ends the file; a status other than errOK says that the sender could
// not read on, and ends it too.
#ifndef PLINTH_EXAMPLES_FILESERV_CONTENT_H
#define PLINTH_EXAMPLES_FILESERV_CONTENT_H

#include <fstream>
#include <functional>
#include <string>

#include "connection.h"
#include "protocol.h"

namespace fileserv {

/// Is told the bytes of each block that has moved.
using Moved = std::function<void(int)>;

/// A file that is read from its start to its end.
class Source {
public:
    /// errNotSupported for a pipe or device; a link is errNoAccess, unless links are followed.
    errstatus Open(const char* path, bool followLinks);
    /// Up to `size` bytes; 0 at the end, -1 for a failure.
    int Read(char* bytes, int size);

private:
    std::ifstream file;
};

/// A file in the making, under a name of the service's own in the same folder. It takes its name,
/// and the place of the file that had it, when it is whole; if it never is, nothing is left of it.
class Replacement {
public:
    Replacement() = default;
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    ~Replacement() { Discard(); }

    errstatus Open(const char* path);
    errstatus Write(const char* bytes, int size);
    errstatus Commit();

private:
    void Discard();

    std::string target;
    std::string unfinished; ///< empty when there is nothing to discard
    std::ofstream file;
};

/// Size and checksum of a file, with the same errors.
errstatus SumOf(const char* path, bool followLinks, Sum& sum);

/// Sends the blocks of a file, the last one included. A result other than errOK is the
/// connection's failure if that is no longer usable, and otherwise the file's, and the other side
/// has been told.
errstatus SendBlocks(Connection& connection, Source& source, const Moved& moved);

/// Receives blocks up to the last one. If the file cannot be written any more the rest is received
/// all the same, so that the two sides stay in step. The result as for SendBlocks.
errstatus ReceiveBlocks(Connection& connection, Replacement& target, const Moved& moved);

} // namespace fileserv

#endif
