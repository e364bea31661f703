// SPDX-License-Identifier: MIT
//
// Moving bytes over a connected stream without partial sends and receives: framed messages, known
// numbers of bytes, and single calls.
//
// A framed message is 4 bytes, the number N of payload bytes as a signed big-endian integer, and
// then the payload. There is nothing else on the wire, and nothing between two messages. An N of 0
// or below has no payload.
//
// Two threads must not use the same direction of one stream at the same time. A stream whose
// getErr() is not errOK sends and receives nothing: the functions return that status. After a
// message that failed half-way nothing brings the two sides into step again.
//
// A message over a socket of the system goes out in one call, as far as the system takes it, and
// is received where it belongs. Any other psockStream is asked to write the prefix and then the
// payload, and to read at most 4096 bytes at a time.
#ifndef PLINTH_PSOCKMSG_H
#define PLINTH_PSOCKMSG_H

#include "dsdatcol.h"
#include "errstatus.h"
#include "outside/zelexport.h"
#include "psock.h"

/// Sends exactly `length` bytes. Gives errOK or the status that ended it; errSocketRead for a
/// stream that takes nothing and records no failure.
ZEL_EXPORT errstatus Write(psockStream& stream, const char* data, int length);

/// Receives exactly `length` bytes. `length` ends up as the number that arrived, also when the
/// result is not errOK; errSocketRead is the end of the stream.
ZEL_EXPORT errstatus Read(psockStream& stream, char* data, int& length);

/// Sends one framed message from the array's own storage. A message that the prefix cannot count
/// (2 GiB and more) is errTooLarge, and nothing is sent.
ZEL_EXPORT errstatus Write(psockStream& stream, dsXArray<char>& message);

/// Receives one framed message and appends its payload, growing the array as bytes arrive, at most
/// 64 KiB ahead of them, and never by what the prefix promises. Gives errOK, the status that the
/// stream has recorded, or errSocketRead when a receive fails or the stream ends; what has arrived
/// stays in the array. There is no other limit: a peer that sends 2 GiB, or one byte a minute, is
/// served for as long.
ZEL_EXPORT errstatus Read(psockStream& stream, dsXArray<char>& message);

/// One stream.Read: bytes received, which may be fewer than `length`, or -1 at the end.
ZEL_EXPORT int ReadFromSocket(psockStream& stream, void* data, int length);

/// One stream.Write: its result as it comes.
ZEL_EXPORT int WriteToSocket(psockStream& stream, const void* data, int length);

#endif
