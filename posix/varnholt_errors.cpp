// SPDX-License-Identifier: MIT
#include "errstatus.h"

#include <cerrno>

// One place maps errno, so that the same cause has the same name in every family.
errstatus errMapError() {
    switch (errno) {
    case 0:
        return errOK;
    case EINTR:
        return errInterrupted;
    case EINVAL:
        return errInvalid;
    case ENOENT:
        return errNotFound;
    case EACCES:
    case EPERM:
        return errNoAccess;
    case EEXIST:
        return errExists;
    case EBUSY:
    case ETXTBSY:
        return errBusy;
    case EWOULDBLOCK:
        return errShared;
    case ENOMEM:
    case ENOBUFS:
        return errNoMemory;
    case ENOSPC:
    case EDQUOT:
        return errNoSpace;
    case EROFS:
        return errReadOnly;
    case ENOTDIR:
        return errNotDirectory;
    case EISDIR:
        return errIsDirectory;
    case ENOSYS:
    case ENOTSUP:
        return errNotSupported;
    case ENOTEMPTY:
        return errNotEmpty;
    case ENAMETOOLONG:
        return errNameTooLong;
    case ELOOP:
    case EMLINK:
        return errTooManyLinks;
    case EXDEV:
        return errCrossDevice;
    case EMFILE:
    case ENFILE:
        return errTooManyOpen;
    case EPIPE:
        return errBrokenPipe;
    case EIO:
        return errIO;
    case EFBIG:
    case E2BIG:
    case EOVERFLOW:
        return errTooLarge;
    case ESRCH:
    case ECHILD:
        return errNoProcess;
    case ECONNREFUSED:
        return errRefused;
    case ECONNRESET:
    case ECONNABORTED:
        return errReset;
    case ETIMEDOUT:
        return errTimedOut;
    case EHOSTUNREACH:
    case EHOSTDOWN:
    case ENETUNREACH:
    case ENETDOWN:
        return errUnreachable;
    case EADDRINUSE:
        return errAddressInUse;
    case EADDRNOTAVAIL:
    case EAFNOSUPPORT:
        return errNoAddress;
    case ENOTCONN:
        return errNotConnected;
    case EBADF:
    case ENOTSOCK:
        return errBadHandle;
    case EILSEQ:
        return errIllegalText;
    default:
        return errSystem;
    }
}

const char* errName(errstatus status) {
#define PLINTH_NAME(value)                                                                         \
    case value:                                                                                    \
        return #value
    switch (status) {
        PLINTH_NAME(errNone);
        PLINTH_NAME(errOK);
        PLINTH_NAME(errInterrupted);
        PLINTH_NAME(errOutOfRange);
        PLINTH_NAME(errInvalid);
        PLINTH_NAME(errNotFound);
        PLINTH_NAME(errFailed);
        PLINTH_NAME(errNoAccess);
        PLINTH_NAME(errExists);
        PLINTH_NAME(errBusy);
        PLINTH_NAME(errShared);
        PLINTH_NAME(errNoMemory);
        PLINTH_NAME(errNoSpace);
        PLINTH_NAME(errReadOnly);
        PLINTH_NAME(errNotDirectory);
        PLINTH_NAME(errIsDirectory);
        PLINTH_NAME(errNotSupported);
        PLINTH_NAME(errNotEmpty);
        PLINTH_NAME(errNameTooLong);
        PLINTH_NAME(errTooManyLinks);
        PLINTH_NAME(errCrossDevice);
        PLINTH_NAME(errTooManyOpen);
        PLINTH_NAME(errBrokenPipe);
        PLINTH_NAME(errIO);
        PLINTH_NAME(errTooLarge);
        PLINTH_NAME(errNoProcess);
        PLINTH_NAME(errRefused);
        PLINTH_NAME(errReset);
        PLINTH_NAME(errTimedOut);
        PLINTH_NAME(errUnreachable);
        PLINTH_NAME(errFileInPath);
        PLINTH_NAME(errAddressInUse);
        PLINTH_NAME(errNoAddress);
        PLINTH_NAME(errNotConnected);
        PLINTH_NAME(errNoDiskInfo);
        PLINTH_NAME(errBadHandle);
        PLINTH_NAME(errIllegalText);
        PLINTH_NAME(errPipeFailed);
        PLINTH_NAME(errThreadStart);
        PLINTH_NAME(errSystem);
        PLINTH_NAME(errSocketRead);
    }
#undef PLINTH_NAME
    return "unknown status";
}
