// SPDX-License-Identifier: MIT
//
// The named locks that one connection holds. Each is a lock file in a folder of the service's own
// below the served one, so that all server processes that offer the same folder share them.
#ifndef PLINTH_EXAMPLES_FILESERV_LOCKS_H
#define PLINTH_EXAMPLES_FILESERV_LOCKS_H

#include <memory>
#include <string>

#include <dsortmap.h>
#include <errstatus.h>
#include <pfulock.h>

namespace fileserv {

class NamedLocks {
public:
    explicit NamedLocks(const std::string& servedFolder);
    NamedLocks(const NamedLocks&) = delete;
    NamedLocks& operator=(const NamedLocks&) = delete;
    /// Gives back what is still held.
    ~NamedLocks();

    /// errOK also for a lock that is held here already; errShared, at once, while another
    /// connection has it.
    errstatus Take(const std::string& name);
    /// errNotFound for a lock that is not held here.
    errstatus GiveBack(const std::string& name);

private:
    struct Held {
        std::string name; ///< the key of the entry
        std::unique_ptr<pfuFileLock> lock;
    };

    [[nodiscard]] std::unique_ptr<pfuFileLock> LockFile(const std::string& name) const;

    std::string folder;
    dsNonOwnerStringMap<Held*> held;
};

} // namespace fileserv

#endif
