// SPDX-License-Identifier: MIT
#include "locks.h"

#include <pfufs.h>

#include "names.h"

namespace fileserv {

NamedLocks::NamedLocks(const std::string& servedFolder)
    : folder(servedFolder + (servedFolder == "/" ? "" : "/") + ownPrefix) {}

NamedLocks::~NamedLocks() {
    while (!held.IsEmpty()) {
        const std::unique_ptr<Held> last(held.GetByIndex(held.GetSize() - 1));
        held.RemoveByIndex(held.GetSize() - 1);
        last->lock->Release();
    }
}

std::unique_ptr<pfuFileLock> NamedLocks::LockFile(const std::string& name) const {
    return std::unique_ptr<pfuFileLock>(
        pfuFileLock::Construct(pfuDirPath(Join(folder, '/', name).c_str())));
}

errstatus NamedLocks::Take(const std::string& name) {
    if (!IsName(name.c_str()))
        return errInvalid;
    if (held.Contains(name.c_str()))
        return errOK;
    errstatus status = pfuFS::pfuMakeDir(folder.c_str());
    if (status == errOK && pfuFS::pfuIsLink(folder.c_str()))
        status = errNoAccess;
    if (status != errOK)
        return status;
    auto taken = std::make_unique<Held>(Held{name, LockFile("lock-" + name)});
    // Lock waits for a lock that is held, and a server must not; Release of a lock that is not
    // held tells at once whether it is free. Between the two nobody else may come, so whoever
    // takes a lock takes the gate around it. That is held for a few system calls only.
    const std::unique_ptr<pfuFileLock> gate = LockFile("gate");
    if (taken->lock == nullptr || gate == nullptr)
        return errNoMemory;
    status = gate->Release(); // tells of a disk that is full, for which Lock would wait
    if (status == errOK || status == errShared)
        status = gate->Lock();
    if (status != errOK)
        return status;
    status = taken->lock->Release();
    if (status == errOK)
        status = taken->lock->Lock();
    gate->Release();
    if (status == errOK) {
        held.Add(taken->name.c_str(), taken.get());
        static_cast<void>(taken.release()); // the map's from here on
    }
    return status;
}

errstatus NamedLocks::GiveBack(const std::string& name) {
    unsigned int index;
    if (!held.FindIndex(name.c_str(), index))
        return errNotFound;
    const std::unique_ptr<Held> given(held.GetByIndex(index));
    held.RemoveByIndex(index);
    return given->lock->Release();
}

} // namespace fileserv
