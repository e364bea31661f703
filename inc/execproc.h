// SPDX-License-Identifier: MIT
//
// Child processes as tasks.
//
// An ExecProcess runs a command line; its standard streams may be given to it through assignable
// streams before the start. OpenPipeWithChildProc makes the pipes for all three. The end of the
// child is seen by the event of GetExitEvent, by the blocking WaitForProcess, and by asking
// GetExitCode or IsAppAlive.
//
// What a command line means, what a child inherits and what the two ways to start mean is told in
// outside/varnholt/process.h. One thread drives an ExecProcess; an event may be waited for on
// another.
#ifndef PLINTH_EXECPROC_H
#define PLINTH_EXECPROC_H

#include <fstream>
#include <istream>
#include <ostream>

#include "errstatus.h"
#include "outside/varnholt/events.h"
#include "outside/varnholt/process.h"
#include "outside/zelexport.h"
#include "pipestream.h"
#include "pmtask.h"

/// The control handle that refers to no stream.
ZEL_EXPORT extern void* badIOCtrlHandle;

/// A stream to be offered to a child as its standard input: the stream and the handle of the
/// descriptor behind it. It owns neither; both must last until the child has been started. A
/// closed file stream has the handle -1. What the stream has read ahead, the child does not see.
class ZEL_EXPORT iAssignableStream {
public:
    iAssignableStream(std::basic_fstream<char>& file);  ///< a file that is open for reading
    iAssignableStream(std::basic_ifstream<char>& file); ///< likewise
    iAssignableStream(iPipeStream& pipe);               ///< the read end of a pipe
    virtual ~iAssignableStream();

    void* GetCtrlHandle() const { return ctrlHandle; } ///< the descriptor's handle, -1 for none

private:
    [[maybe_unused]] std::istream* stream;
    void* ctrlHandle;
};

/// The same for the standard output or error. Flush the stream first if what it holds is to come
/// before the child's output.
class ZEL_EXPORT oAssignableStream {
public:
    oAssignableStream(std::basic_fstream<char>& file);  ///< a file that is open for writing
    oAssignableStream(std::basic_ofstream<char>& file); ///< likewise
    oAssignableStream(oPipeStream& pipe);               ///< the write end of a pipe
    virtual ~oAssignableStream();

    void* GetCtrlHandle() const { return ctrlHandle; } ///< the descriptor's handle, -1 for none

private:
    [[maybe_unused]] std::ostream* stream;
    void* ctrlHandle;
};

/// A child process. It costs one descriptor while it runs. The destructor neither waits for a
/// running child nor ends it: such a child is collected by one of the next starts after its end.
///
/// Kill, Interrupt, IsAppAlive, WaitForProcess and GetExitEvent are for a child that has been
/// started. Once its end is known they answer from what is known, and no signal is sent: the
/// child's id may be another's by then.
class ZEL_EXPORT ExecProcess : public pmTask {
public:
    /// `streamFlags` tells which assignments take effect: 1 AssignCin, 2 AssignCout, 4 AssignCerr.
    /// The command is copied.
    ExecProcess(const char* command, unsigned int streamFlags);
    ~ExecProcess() override;

    /// Give the child a standard stream at its next start. Without effect if the flag is off.
    void AssignCout(const oAssignableStream& stream);
    void AssignCin(const iAssignableStream& stream);  ///< the standard input
    void AssignCerr(const oAssignableStream& stream); ///< the standard error

    bool IsCoutToAssign() const { return coutToAssign; } ///< flag 2 is set
    bool IsCerrToAssign() const { return cerrToAssign; } ///< flag 4 is set
    bool IsCinToAssign() const { return cinToAssign; }   ///< flag 1 is set

    /// Starts the child in the caller's process group. False if the program cannot be executed:
    /// errMapError() tells why, and nothing has changed. After a start the status record says
    /// errOK, and not alive: ask IsAppAlive for that.
    bool Start() override;
    /// False starts the child in a session of its own, out of reach of the terminal's signals.
    bool Start(bool flag);

    /// Ends the child at once (SIGKILL). The status record tells of this call.
    bool Kill() override;
    /// Asks the child to end, as the terminal's interrupt key does (SIGINT). Both are true when the
    /// signal was sent, and wait for nothing.
    bool Interrupt();

    /// Blocks until the child has ended and gives its exit code: 128 + N if signal N ended it, -1
    /// if the host collected the child before, so that the code is not to be had.
    long WaitForProcess();
    /// The status record, whose ExitCode() is the exit code if the child has ended. Never blocks.
    pmExitStatus& GetExitCode();
    /// The status record as it stands.
    pmExitStatus& GetExitStatus() override;
    /// Whether the child runs.
    bool IsAppAlive();
    /// A new event that fires at the child's end and stays signalled; the caller deletes it. It
    /// may outlive this object.
    zelEvent* GetExitEvent();

private:
    bool Launch(int mode);
    void LetGo();
    void NoteEnd(long code);

    void* process;
    unsigned long processId;
    bool reaped; ///< no record is held that Process_Free has to release
    pmExitStatus exitStatus;
    bool coutToAssign;
    bool cinToAssign;
    bool cerrToAssign;
    void* coutHandle;
    void* cinHandle;
    void* cerrHandle;
    char* command;
};

/// Fires at the end of a child process.
class ZEL_EXPORT ptkExecProcessEvent : public zelEvent {
public:
    /// `process` is a record of Process_Launch.
    explicit ptkExecProcessEvent(void* process);

    /// The event as one of this class, or null if it is of another. Requires: not null.
    static ptkExecProcessEvent* cast(zelEvent* event);

private:
    int GetKind() override;
    void* GetInfo() override;

    static const int eventKind;

    [[maybe_unused]] int unread = 0;
};

/// Process_GetStatus and Process_GetExitCode of a process record.
ZEL_EXPORT AliveStatus IsAlive(void* process);
ZEL_EXPORT bool GetProcExitCode(void* process, long* code); ///< true with the code if it has ended

/// Starts `process` on three streams: the child's input, output and error. None may be null.
/// errOK when it runs; otherwise the status that the process had before, errNone for a new one.
ZEL_EXPORT errstatus CreateChildProcessWithPipes(iPipeStream* in, oPipeStream* out,
                                                 oPipeStream* err, ExecProcess* process);

/// Makes three pipes, starts `process` on them (it must have been made with streamFlags 7 for all
/// to be connected), and gives the caller the other ends, each to be released with DeletePipe. An
/// out-argument may be null: that end then stays open with nobody to use it.
///
/// errOK when the child runs. Otherwise nothing is left and no out-argument is written:
/// errPipeFailed, or what CreateChildProcessWithPipes gives.
ZEL_EXPORT errstatus OpenPipeWithChildProc(oPipeStream** toChild, iPipeStream** fromChild,
                                           iPipeStream** errorFromChild, ExecProcess* process);

#endif
