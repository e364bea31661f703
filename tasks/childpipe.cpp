// SPDX-License-Identifier: MIT
#include "execproc.h"

namespace {

/// Takes a stream down with its buffer and its pipe end: the other side sees the end of the data
/// only when nobody here holds the end any more.
template <typename Stream>
void Discard(Stream* stream) {
    if (stream != nullptr)
        DeletePipe(stream);
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
    oPipeStream* stdinWrite = nullptr;
    iPipeStream* stdinRead = nullptr;
    errstatus status = CreatePipeSt(&stdinWrite, &stdinRead);
    if (status != errOK)
        return status;
    oPipeStream* stdoutWrite = nullptr;
    iPipeStream* stdoutRead = nullptr;
    status = CreatePipeSt(&stdoutWrite, &stdoutRead);
    if (status != errOK) {
        Discard(stdinWrite);
        Discard(stdinRead);
        return status;
    }
    oPipeStream* stderrWrite = nullptr;
    iPipeStream* stderrRead = nullptr;
    status = CreatePipeSt(&stderrWrite, &stderrRead);
    if (status != errOK) {
        Discard(stdinWrite);
        Discard(stdinRead);
        Discard(stdoutWrite);
        Discard(stdoutRead);
        return status;
    }
    status = CreateChildProcessWithPipes(stdinRead, stdoutWrite, stderrWrite, process);
    if (status != errOK) {
        Discard(stdinWrite);
        Discard(stdinRead);
        Discard(stdoutWrite);
        Discard(stdoutRead);
        Discard(stderrWrite);
        Discard(stderrRead);
        return status;
    }
    Discard(stdinRead);
    Discard(stdoutWrite);
    Discard(stderrWrite);
    if (toChild != nullptr)
        *toChild = stdinWrite;
    if (fromChild != nullptr)
        *fromChild = stdoutRead;
    if (errorFromChild != nullptr)
        *errorFromChild = stderrRead;
    return errOK;
}
