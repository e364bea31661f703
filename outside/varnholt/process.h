// SPDX-License-Identifier: MIT
//
// Child processes: launch, signals, and the record of how one ended.
//
// A launch gives a record (an even handle word). The record answers for the child for as long as
// it is held, also after the child's end: it is let go with Process_Free, or with CloseHandle
// once a wait has finished it. The host may collect children of its own accord, ours included;
// then the end is known and the code is not.
//
// Any thread may ask about a record while another waits on it, as long as nobody lets it go.
//
// The reasons of failures below are the last error; errMapError() tells them as errInvalid, errBusy
// and errNoProcess.
#ifndef PLINTH_VARNHOLT_PROCESS_H
#define PLINTH_VARNHOLT_PROCESS_H

#include "outside/zelexport.h"

/// Whether a child runs.
enum AliveStatus {
    psEnded = 0, ///< it has ended, or there is none
    psAlive = 1, ///< it runs
};

/// Starts `command`. It is split into words like a POSIX shell does it (blanks; '...', "...",
/// backslash, which takes a newline behind it away), but nothing is expanded and no shell is asked:
/// operators are ordinary characters. The first word is looked up on PATH.
///
/// `in`, `out` and `err` are the descriptors' handles for the three standard streams; -1 leaves
/// that stream as it is in this process. The child gets nothing else: every other descriptor is
/// closed in it, its signal mask is empty, and signals have their default dispositions (an
/// ignored SIGHUP stays ignored). Mode 1 leaves it in the caller's process group, mode 2 gives it
/// a session of its own. `reserved` is null.
///
/// False when the program cannot be executed, with the reason as the last error and both
/// out-arguments untouched; an unclosed quote and a missing program word are "invalid".
ZEL_EXPORT bool Process_Launch(void** process, unsigned long* id, const char* command,
                               void* reserved, void* in, void* out, void* err, int mode);

/// True once the child has ended, with `*code`: its exit code, 128 + N if signal N ended it, or
/// -1 if the host collected it first. `wait` blocks until then; otherwise false means that it
/// runs. `collect` finishes the record, and the system forgets the child; without it, the wait
/// can be made again.
ZEL_EXPORT bool Process_Wait(void* process, long* code, bool wait, bool collect);

ZEL_EXPORT AliveStatus Process_GetStatus(void* process); ///< finishes nothing, never blocks

/// The code of a child that has ended, as Process_Wait gives it. False, "busy", while it runs.
/// It finishes nothing.
ZEL_EXPORT bool Process_GetExitCode(void* process, long* code);

/// Ends the child with SIGKILL. False with "no such process" once its end is recorded: its id
/// may be somebody else's by then, and no signal is sent.
ZEL_EXPORT bool Process_Kill(void* process);

/// Sends SIGINT to a child by its id. False with "no such process" for an id that is not that of
/// a child launched here whose end is still to be recorded.
ZEL_EXPORT bool Process_Interrupt(unsigned long id);

/// Lets a record go. A child that still runs goes on, and is collected by one of the next
/// launches after its end.
ZEL_EXPORT void Process_Free(void* process);

#endif
