// SPDX-License-Identifier: MIT
//
// The result of everything that can fail with a reason. The values are fixed: they may be stored
// and sent, and none is ever used again for something else.
//
// Compare with errOK, which is 1: a bare `if (status)` is taken for success and for failures alike.
#ifndef PLINTH_ERRSTATUS_H
#define PLINTH_ERRSTATUS_H

#include "outside/varnholt/errors.h"
#include "outside/zelexport.h"

/// How an operation ended.
enum errstatus : int {
    errNone = 0,          ///< nothing recorded yet
    errOK = 1,            ///< success
    errInterrupted = 2,   ///< the system gave up on an interrupted call
    errOutOfRange = 3,    ///< a position outside the data
    errInvalid = 4,       ///< an argument that the system refuses
    errNotFound = 5,      ///< nothing at the path
    errFailed = 6,        ///< the operation failed
    errNoAccess = 7,      ///< no permission
    errExists = 8,        ///< the name is taken
    errBusy = 9,          ///< in use
    errShared = 10,       ///< another holds the file or the lock
    errNoMemory = 11,     ///< memory or buffers have run out
    errNoSpace = 12,      ///< the disk or the quota is full
    errReadOnly = 13,     ///< a file system that cannot be written
    errNotDirectory = 14, ///< the path, or a leading part of it, is no directory
    errIsDirectory = 15,  ///< the path is a directory
    errNotSupported = 16, ///< no such thing on this platform
    errNotEmpty = 17,     ///< a directory that still holds something
    errNameTooLong = 18,  ///< a name or a path over its limit
    errTooManyLinks = 19, ///< symbolic links in a ring, or too many names for one file
    errCrossDevice = 20,  ///< source and target lie on different file systems
    errTooManyOpen = 21,  ///< descriptors have run out
    errBrokenPipe = 22,   ///< nobody reads any more
    errIO = 23,           ///< the device failed
    errTooLarge = 24,     ///< a file, a value or an argument list over its limit
    errNoProcess = 25,    ///< no such process or child
    errRefused = 26,      ///< nobody listens there
    errReset = 27,        ///< the peer dropped the connection
    errTimedOut = 28,     ///< no answer in time
    errUnreachable = 29,  ///< no way to that network or host
    errFileInPath = 30,   ///< a leading part of the path exists and is no directory
    errAddressInUse = 31, ///< the port is taken
    errNoAddress = 32,    ///< no such host, address or address family
    errNotConnected = 33, ///< a socket without a peer
    errNoDiskInfo = 34,   ///< the free space could not be asked
    errBadHandle = 35,    ///< not open, or not of the kind that was needed
    errIllegalText = 36,  ///< bytes that are no text in the encoding
    errPipeFailed = 37,   ///< making an anonymous pipe failed
    errThreadStart = 38,  ///< starting a thread failed
    errSystem = 39,       ///< any other system error
    errSocketRead = 41,   ///< a receive reported failure
};

/// The name of a value as it stands above ("errNotFound"), or "unknown status". Never null, and
/// never to be released.
ZEL_EXPORT const char* errName(errstatus status);

#endif
