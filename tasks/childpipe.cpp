// SPDX-License-Identifier: MIT
#include "execproc.h"

#include <utility>

namespace {

/// Takes a stream down with its buffer and its pipe end: the other side sees the end of the data
/// only when nobody here holds the end any more.
template <typename Stream>
void Discard(Stream*& stream) {
    if (stream != nullptr)
        DeletePipe(std::exchange(stream, nullptr));
}

/// Three pipes, or as many as there are so far. Whatever nobody has taken goes with it, in the
/// order of the fields.
struct Pipes {
    Pipes() = default;
    Pipes(const Pipes&) = delete;
    Pipes& operator=(const Pipes&) = delete;
    ~Pipes() {
        Discard(stdinWrite);
        Discard(stdinRead);
        Discard(stdoutWrite);
        Discard(stdoutRead);
        Discard(stderrWrite);
        Discard(stderrRead);
    }

    oPipeStream* stdinWrite = nullptr;
    iPipeStream* stdinRead = nullptr;
    oPipeStream* stdoutWrite = nullptr;
    iPipeStream* stdoutRead = nullptr;
    oPipeStream* stderrWrite = nullptr;
    iPipeStream* stderrRead = nullptr;
};

/// Leaves a stream to the caller, or to nobody where the caller does not want it.
template <typename Stream>
void Hand(Stream*& stream, Stream** target) {
    Stream* const given = std::exchange(stream, nullptr);
    if (target != nullptr)
        *target = given;
}

} // namespace

errstatus CreateChildProcessWithPipes(iPipeStream* in, oPipeStream* out, oPipeStream* err,
                                      ExecProcess* process) {
    process->AssignCout(oAssignableStream(*out));
    process->AssignCin(iAssignableStream(*in));
    process->AssignCerr(oAssignableStream(*err));
    process->Start();
    return process->GetExitStatus().GetExitCode();
}

errstatus OpenPipeWithChildProc(oPipeStream** toChild, iPipeStream** fromChild,
                                iPipeStream** errorFromChild, ExecProcess* process) {
    Pipes pipes;
    errstatus status = CreatePipeSt(&pipes.stdinWrite, &pipes.stdinRead);
    if (status == errOK)
        status = CreatePipeSt(&pipes.stdoutWrite, &pipes.stdoutRead);
    if (status == errOK)
        status = CreatePipeSt(&pipes.stderrWrite, &pipes.stderrRead);
    if (status == errOK)
        status = CreateChildProcessWithPipes(pipes.stdinRead, pipes.stdoutWrite, pipes.stderrWrite,
                                             process);
    if (status != errOK)
        return status;
    Discard(pipes.stdinRead);
    Discard(pipes.stdoutWrite);
    Discard(pipes.stderrWrite);
    Hand(pipes.stdinWrite, toChild);
    Hand(pipes.stdoutRead, fromChild);
    Hand(pipes.stderrRead, errorFromChild);
    return errOK;
}
