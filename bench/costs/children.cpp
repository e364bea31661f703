// SPDX-License-Identifier: MIT
#include <iterator>
#include <memory>
#include <string>

#include <execproc.h>

#include "costs.h"

namespace {

using namespace costs;

void Run() {
    ExecProcess process("true", 0);
    Count([&] { Require(process.Start() && process.WaitForProcess() == 0); });
}

void RunOnPipes() {
    Count([&] {
        ExecProcess process("cat", 7);
        oPipeStream* in;
        iPipeStream *out, *err;
        Require(OpenPipeWithChildProc(&in, &out, &err, &process) == errOK);
        DeletePipe(in);
        process.WaitForProcess();
        DeletePipe(out);
        DeletePipe(err);
    });
}

void Poll() {
    ExecProcess process("sleep 1000", 0);
    Require(process.Start());
    Count([&] { Require(process.IsAppAlive()); });
    process.Kill();
    process.WaitForProcess();
}

void Kill() {
    ExecProcess process("sleep 1000", 0);
    Count([&] { Require(process.Start()); },
          [&] { Require(process.Kill() && process.WaitForProcess() == 128 + 9); });
}

void Event() {
    ExecProcess process("sleep 1000", 0);
    Require(process.Start());
    Count([&] {
        const std::unique_ptr<zelEvent> end(process.GetExitEvent());
        Require(!end->IsSignaled());
    });
    process.Kill();
    process.WaitForProcess();
}

void Missing() {
    ExecProcess process("/no-such-program", 0);
    Count([&] { Require(!process.Start()); });
}

const Row rows[] = {
    {"a child launched and waited for", Run},    {"a child on three pipes, waited for", RunOnPipes},
    {"IsAppAlive of a child that runs", Poll},   {"a child killed and waited for", Kill},
    {"an exit event made and looked at", Event}, {"a program that is not there", Missing},
};

} // namespace

const Family costs::children{"Child processes", rows};
