// SPDX-License-Identifier: MIT
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include <execproc.h>
#include <sys/wait.h>

#include "outside/varnholt/process.h"
#include "outside/win32/handles.h"
#include "sweep.h"

namespace {

using namespace sweep;

using Process = std::unique_ptr<ExecProcess>;

Process Prepare(const char* command, unsigned int flags = 0) {
    Process process;
    Try([&] { process = std::make_unique<ExecProcess>(command, flags); });
    Expect(process != nullptr || MemoryFails(), "it is made");
    return process;
}

void RunChild() {
    const Process process = Prepare("sh -c 'exit 7'");
    if (process == nullptr)
        return;
    const bool started = Try(false, [&] { return process->Start(); });
    Expect(started || !MustWork(), "it starts");
    if (!started) {
        Expect(process->GetExitStatus().GetExitCode() == errNone, "nothing has changed");
        Expect(process->Start(), "the next start succeeds");
    }
    long code = -2;
    Try([&] { code = process->WaitForProcess(); });
    Expect(code == 7 || !MustWork(), "its code");
    if (code != 7)
        Expect(process->WaitForProcess() == 7, "its code can still be had");
    Expect(!process->IsAppAlive(), "it has ended");
}

void PollChild() {
    const Process process = Prepare("cat", 1);
    std::fstream none("/dev/null");
    if (process == nullptr)
        return;
    process->AssignCin(iAssignableStream(none));
    if (!Try(false, [&] { return process->Start(false); })) {
        Expect(!MustWork(), "it starts");
        return;
    }
    std::unique_ptr<zelEvent> end;
    Try([&] { end.reset(process->GetExitEvent()); });
    Expect(end != nullptr || MemoryFails(), "an event");
    bool fired = false;
    if (end != nullptr)
        Try([&] { fired = end->Wait(2000); });
    Expect(fired || !MustWork(), "it fires");
    Expect(end == nullptr || ptkExecProcessEvent::cast(end.get()) != nullptr, "of its kind");
    bool alive = true;
    Try([&] { alive = process->IsAppAlive(); });
    Expect(!fired || !alive || !MustWork(), "it has ended");
    Try([&] { process->GetExitCode(); });
    Expect(!fired || process->GetExitCode().ExitCode() == 0, "its code");
    process->WaitForProcess();
    Expect(!process->IsAppAlive(), "it has ended");
    Try([&] { end.reset(); });
}

void ChildOnFiles() {
    const Folder folder;
    folder.Put("in", "hello");
    {
        std::ifstream in("in");
        std::ofstream out("out");
        std::fstream err("err", std::ios::out);
        const Process process = Prepare("cat", 7);
        if (process == nullptr)
            return;
        Try([&] {
            process->AssignCin(iAssignableStream(in));
            process->AssignCout(oAssignableStream(out));
            process->AssignCerr(oAssignableStream(err));
        });
        if (!Try(false, [&] { return process->Start(); }))
            return Expect(!MustWork(), "it starts");
        Expect(process->WaitForProcess() == 0, "it succeeds");
    }
    Expect(folder.Get("out") == "hello", "it works on files");
}

void EndChild() {
    for (const bool kill : {true, false}) {
        const Process process = Prepare("sleep 1000");
        if (process == nullptr || !process->Start())
            continue;
        const bool sent = Try(false, [&] { return kill ? process->Kill() : process->Interrupt(); });
        Expect(sent || !MustWork(), "it is told to end");
        Expect(!sent || process->GetExitStatus().GetExitCode() == errOK, "the record tells so");
        if (!sent)
            Expect(process->Kill(), "the next one succeeds");
        long code = 0;
        Try([&] { code = process->WaitForProcess(); });
        Expect(code == (kill || !sent ? 128 + 9 : 128 + 2), "its code");
        Expect(!process->Kill(), "no signal to one that is gone");
    }
}

void TalkToChild() {
    const Process process = Prepare("sh -c 'cat; echo end >&2'", 7);
    oPipeStream* in = nullptr;
    iPipeStream *out = nullptr, *err = nullptr;
    if (process == nullptr)
        return;
    const errstatus status =
        Try(errFailed, [&] { return OpenPipeWithChildProc(&in, &out, &err, process.get()); });
    Expect(status == errOK || !MustWork(), "it starts");
    Expect((status == errOK) == (in != nullptr && out != nullptr && err != nullptr) &&
               (status == errOK) == (in != nullptr || out != nullptr || err != nullptr),
           "all streams or none");
    if (status != errOK)
        return;
    *in << "hello";
    DeletePipe(in);
    Expect(std::string(std::istreambuf_iterator<char>(*out), {}) == "hello", "it answers");
    Expect(std::string(std::istreambuf_iterator<char>(*err), {}) == "end\n", "on both streams");
    DeletePipe(out);
    DeletePipe(err);
    process->WaitForProcess();
}

void LeaveChild() {
    {
        const Process process = Prepare("true");
        if (process == nullptr || !process->Start())
            return;
        std::unique_ptr<zelEvent> end(process->GetExitEvent());
        end->Wait(-1);
        Try([&] { const_cast<Process&>(process).reset(); });
    }
    // One of the next starts collects it.
    ExecProcess next("true", 0);
    for (int i = 0; i < 2; ++i)
        if (i == 0 ? Try(false, [&] { return next.Start(); }) : next.Start())
            next.WaitForProcess();
}

void CollectedByTheHost() {
    ExecProcess process("sh -c 'exit 7'", 0);
    if (!process.Start())
        return;
    Expect(waitpid(-1, nullptr, 0) > 0, "the host collects it");
    long code = -2;
    bool alive = true, killed = true;
    Try([&] { code = process.WaitForProcess(); });
    Try([&] { alive = process.IsAppAlive(); });
    Try([&] { killed = process.Kill(); });
    Expect((code == -1 && !alive && !killed) || !MustWork(), "it has ended, with a code not known");
}

void NativeProcesses() {
    void *record = nullptr, *const none = zelHandleOfDescriptor(-1);
    unsigned long id = 0;
    const bool launched = Try(false, [&] {
        return Process_Launch(&record, &id, "sleep 1000", nullptr, none, none, none, 2);
    });
    Expect(launched ? record != nullptr && id != 0 : !MustWork() && record == nullptr && id == 0,
           "launched if it says so");
    if (!launched)
        return;
    long code = -2;
    Try([&] {
        Expect(Process_GetStatus(record) == psAlive || !MustWork(), "it runs");
        Expect(IsAlive(record) == psAlive || !MustWork(), "it runs");
    });
    Try([&] { Expect(!Process_Wait(record, &code, false, true), "it runs"); });
    Expect(code == -2, "no code yet");
    if (!Try(false, [&] { return Process_Interrupt(id); }))
        Expect(Process_Kill(record), "it can be killed");
    const bool ended = Try(false, [&] { return Process_Wait(record, &code, true, false); });
    Expect(ended ? code > 128 : !MustWork(), "it has ended");
    long again = -2;
    Try([&] { GetProcExitCode(record, &again); });
    Expect(again == code || !MustWork() || Hit(), "the code stays");
    Process_Wait(record, &code, true, true);
    Try([&] { CloseHandle(record); });
}

const Scenario scenarios[] = {
    {"run a child", "ExecProcess::*", RunChild},
    {"poll a child",
     "iAssignableStream::* ptkExecProcessEvent::* zelPROCESSEvent::* zelHandleOfFile", PollChild},
    {"a child on files", "?AssignableStream::* ExecProcess::Assign*", ChildOnFiles},
    {"end a child", "ExecProcess::*", EndChild},
    {"talk to a child", "OpenPipeWithChildProc CreateChildProcessWithPipes oAssignableStream::*",
     TalkToChild},
    {"collected by the host", "ExecProcess::*", CollectedByTheHost},
    {"leave a child", "Process_Free", LeaveChild},
    {"native processes", "Process_* IsAlive GetProcExitCode", NativeProcesses},
};

} // namespace

namespace sweep {
const Family processes{"processes", scenarios, true};
}
