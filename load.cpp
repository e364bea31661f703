// SPDX-License-Identifier: MIT
//
// What happens when the library is loaded and unloaded, in this order and nowhere else.
// Initialisers in one file run from top to bottom; spread over several files their order would be
// the linker's.

#include "asynccall.h"
#include "ds/lasting.h"
#include "ds/stringdatabase.h"
#include "execproc.h"
#include "pipestream.h"
#include "pmtask.h"
#include "psock.h"
#include "tasks/taskmap.h"

namespace {
auto& strings = StringDatabase();
} // namespace

const int zelIPipeEvent::eventKind = zelEvent::AllocEventKind();
// NOLINTNEXTLINE(cppcoreguidelines-interfaces-global-init): that one is there before any code runs
void* const pmInfoBridge::nullHandle = badThreadHandle;

namespace {

auto& tasks = TaskMap();

/// When the library is unloaded, or the program ends: nobody may have a part of these any more, or
/// others may come that still need them.
const struct Unload {
    Unload() = default;
    Unload(const Unload&) = delete;
    Unload& operator=(const Unload&) = delete;
    ~Unload() {
        Trim(tasks);
        Trim(strings);
    }
} unload;

} // namespace

const int ptkExecProcessEvent::eventKind = zelEvent::AllocEventKind();
const int ptkAsyncCallEvent::eventKind = zelEvent::AllocEventKind();
const int ptkStrictTaskEvent::eventKind = zelEvent::AllocEventKind();
const int zelSocketEvent::eventKind = zelEvent::AllocEventKind();
