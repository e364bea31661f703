// SPDX-License-Identifier: MIT
//
// A served folder as its clients see it: one operation for each request. Paths are of either form
// and relative to that folder; the empty one is the folder itself.
//
// A result is errOK, the reason of the server, or that of a connection which is then no longer
// usable.
#ifndef PLINTH_EXAMPLES_FILESERV_REMOTE_H
#define PLINTH_EXAMPLES_FILESERV_REMOTE_H

#include <memory>
#include <string>
#include <vector>

#include "connection.h"
#include "content.h"
#include "protocol.h"

namespace fileserv {

class RemoteFolder {
public:
    /// Null, with the cause as the last error, if there is no server to be reached. A stop of the
    /// service, if there is one, breaks the connection off.
    static std::unique_ptr<RemoteFolder> Connect(const char* host, int port, zelService* service);

    [[nodiscard]] bool IsUsable() const { return connection.IsUsable(); }

    errstatus GetListing(const std::string& path, const std::string& pattern,
                         std::vector<Entry>& entries);
    errstatus GetEntry(const std::string& path, Entry& entry);
    errstatus GetSum(const std::string& path, Sum& sum);
    /// A file of this host takes the place of another one when it is whole, and not before.
    errstatus FetchFile(const std::string& path, const std::string& file, const Moved& moved);
    errstatus PutFile(const std::string& file, const std::string& path, const Moved& moved);
    /// Any request without anything but a status in its answer.
    errstatus Do(Operation operation, const std::string& path);

private:
    explicit RemoteFolder(std::unique_ptr<psockStream> socket, zelService* service);

    errstatus Ask(Operation operation, const std::string& path, const std::string& argument);
    errstatus ReceiveAnswer();
    errstatus Understood(bool whole);

    Connection connection;
    dsXArray<char> message{nullptr};
};

} // namespace fileserv

#endif
