// SPDX-License-Identifier: MIT
#include "execproc.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "outside/quillmarsh/memory.h"
#include "outside/varnholt/streambuf.h"
#include "outside/win32/handles.h"

// Spelled out, so that it is data and no code: the initialisers of other files may use it.
void* badIOCtrlHandle = reinterpret_cast<void*>(-1L);

namespace {

void* NoStream() {
    return zelHandleOfDescriptor(-1);
}

void* NoProcess() {
    return zelHandleOfDescriptor(-1);
}

/// For free(). A process without a command could not even say why it does not start.
char* CopyOf(const char* text) {
    char* const copy = strdup(text);
    if (copy == nullptr)
        zelOutOfMemory();
    return copy;
}

} // namespace

iAssignableStream::iAssignableStream(std::basic_fstream<char>& file)
    : stream(&file), ctrlHandle(zelHandleOfFile(*file.rdbuf())) {}

iAssignableStream::iAssignableStream(std::basic_ifstream<char>& file)
    : stream(&file), ctrlHandle(zelHandleOfFile(*file.rdbuf())) {}

iAssignableStream::iAssignableStream(iPipeStream& pipe)
    : stream(&pipe), ctrlHandle(pipe.rdbuf()->pipe().fd()) {}

iAssignableStream::~iAssignableStream() = default;

oAssignableStream::oAssignableStream(std::basic_fstream<char>& file)
    : stream(&file), ctrlHandle(zelHandleOfFile(*file.rdbuf())) {}

oAssignableStream::oAssignableStream(std::basic_ofstream<char>& file)
    : stream(&file), ctrlHandle(zelHandleOfFile(*file.rdbuf())) {}

oAssignableStream::oAssignableStream(oPipeStream& pipe)
    : stream(&pipe), ctrlHandle(pipe.rdbuf()->pipe().fd()) {}

oAssignableStream::~oAssignableStream() = default;

ExecProcess::ExecProcess(const char* commandLine, unsigned int streamFlags)
    : process(NoProcess()), processId(0), reaped(true), coutToAssign((streamFlags & 2) != 0),
      cinToAssign((streamFlags & 1) != 0), cerrToAssign((streamFlags & 4) != 0),
      coutHandle(NoStream()), cinHandle(NoStream()), cerrHandle(NoStream()),
      command(CopyOf(commandLine)) {
    exitStatus.setAlive();
}

ExecProcess::~ExecProcess() {
    LetGo();
    std::free(command);
}

/// Releases the record. One that a wait has finished is only what is remembered of the child.
void ExecProcess::LetGo() {
    void* const record = std::exchange(process, NoProcess());
    if (!reaped)
        Process_Free(record);
    else if (record != NoProcess())
        CloseHandle(record);
}

void ExecProcess::AssignCout(const oAssignableStream& stream) {
    if (coutToAssign)
        coutHandle = stream.GetCtrlHandle();
}

void ExecProcess::AssignCin(const iAssignableStream& stream) {
    if (cinToAssign)
        cinHandle = stream.GetCtrlHandle();
}

void ExecProcess::AssignCerr(const oAssignableStream& stream) {
    if (cerrToAssign)
        cerrHandle = stream.GetCtrlHandle();
}

bool ExecProcess::Start() {
    return Launch(1);
}

bool ExecProcess::Start(bool flag) {
    return Launch(flag ? 1 : 2);
}

bool ExecProcess::Launch(int mode) {
    void* record = NoProcess();
    unsigned long id = 0;
    if (!Process_Launch(&record, &id, command, nullptr, cinHandle, coutHandle, cerrHandle, mode))
        return false;
    LetGo();
    process = record;
    processId = id;
    GetExitStatus().setStatus(errOK);
    reaped = false;
    return true;
}

bool ExecProcess::Kill() {
    const bool killed = Process_Kill(process);
    exitStatus.setStatus(killed ? errOK : errMapError());
    return killed;
}

bool ExecProcess::Interrupt() {
    const bool interrupted = Process_Interrupt(processId);
    exitStatus.setStatus(interrupted ? errOK : errMapError());
    return interrupted;
}

void ExecProcess::NoteEnd(long code) {
    reaped = true;
    exitStatus.setExitCode(code);
}

long ExecProcess::WaitForProcess() {
    long code = 0;
    if (Process_Wait(process, &code, true, true))
        NoteEnd(code);
    return code;
}

pmExitStatus& ExecProcess::GetExitCode() {
    long code = 0;
    if (!reaped && Process_Wait(process, &code, false, true))
        NoteEnd(code);
    return exitStatus;
}

pmExitStatus& ExecProcess::GetExitStatus() {
    return exitStatus;
}

bool ExecProcess::IsAppAlive() {
    if (Process_GetStatus(process) == psAlive)
        return true;
    exitStatus.setStatus(errOK);
    return false;
}

zelEvent* ExecProcess::GetExitEvent() {
    return new ptkExecProcessEvent(process);
}

ptkExecProcessEvent::ptkExecProcessEvent(void* process) : zelEvent(new zelPROCESSEvent(process)) {}

int ptkExecProcessEvent::GetKind() {
    return eventKind;
}

void* ptkExecProcessEvent::GetInfo() {
    return this;
}

ptkExecProcessEvent* ptkExecProcessEvent::cast(zelEvent* event) {
    return event->GetKind() == eventKind ? static_cast<ptkExecProcessEvent*>(event->GetInfo())
                                         : nullptr;
}

AliveStatus IsAlive(void* process) {
    return Process_GetStatus(process);
}

bool GetProcExitCode(void* process, long* code) {
    return Process_GetExitCode(process, code);
}
