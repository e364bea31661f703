// SPDX-License-Identifier: MIT
#include "pfulock.h"

#include <new>

#include "outside/quillmarsh/files.h"
#include "outside/varnholt/files.h"
#include "outside/win32/files.h"
#include "outside/win32/handles.h"

namespace {

constexpr unsigned int pauseBetweenAttempts = 1000; // milliseconds

/// Whether the reason of a failed opening may go away while nobody does anything about it. Where a
/// file system knows no locks, the reason is one that never passes.
bool MayPass(errstatus reason) {
    switch (reason) {
    case errShared:
    case errBusy:
    case errNoMemory:
    case errNoSpace:
    case errTooManyOpen:
        return true;
    default:
        return false;
    }
}

/// The lock is the opening of the file, which nobody shares, kept from Lock to Release.
class pfuFileLockImpl : public pfuFileLock {
public:
    explicit pfuFileLockImpl(const pfuDirPath& named) : path(named) {}
    ~pfuFileLockImpl() override {
        if (IsHeld())
            LetGo();
    }

    errstatus Lock() override;
    errstatus Release() override;

private:
    void* Open();
    bool IsHeld() const { return handle != None() && owner == GetCurrentProcessId(); }
    errstatus LetGo();

    static void* None() { return zelHandleOfDescriptor(-1); }

    pfuOSPath path;
    void* handle = None();  ///< in a process forked from the owner, nothing
    unsigned int owner = 0; ///< the process that locked
};

void* pfuFileLockImpl::Open() {
    constexpr unsigned int writeAccess = 0x40000000, shareNothing = 0;
    constexpr unsigned int openAlways = 4, normal = 0x80;
    void* const opened =
        uCreateFile(path, writeAccess, shareNothing, nullptr, openAlways, normal, nullptr);
    if (opened == None() || LockFile(opened))
        return opened;
    win32CloseFileHandle(opened);
    return None();
}

errstatus pfuFileLockImpl::Lock() {
    if (IsHeld())
        return errOK;
    while ((handle = Open()) == None()) {
        const errstatus reason = errMapError();
        if (!MayPass(reason))
            return reason;
        Sleep(pauseBetweenAttempts);
    }
    owner = GetCurrentProcessId();
    return errOK;
}

errstatus pfuFileLockImpl::Release() {
    if (!IsHeld() && (handle = Open()) == None())
        return errMapError();
    return LetGo();
}

errstatus pfuFileLockImpl::LetGo() {
    UnlockFile(handle);
    const bool closed = CloseHandle(handle);
    handle = None();
    return closed ? errOK : errMapError();
}

} // namespace

pfuFileLock::~pfuFileLock() = default;

pfuFileLock* pfuFileLock::Construct(const pfuDirPath& path) {
    return new (std::nothrow) pfuFileLockImpl(path);
}

bool lockFileBuf::Open(const char* path, int mode, int) {
    return open(pfuOSPath(path), static_cast<std::ios_base::openmode>(mode)) == nullptr;
}

bool lockFileBuf::Close() {
    seekpos(0, std::ios_base::in | std::ios_base::out);
    return close() == nullptr;
}

errstatus lockFileBuf::LockAction(int) {
    return errOK;
}
