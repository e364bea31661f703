// SPDX-License-Identifier: MIT
//
// What happens when the library is loaded, in this order and nowhere else. Initialisers in one
// file run from top to bottom; spread over several files their order would be the linker's.

#include "asynccall.h"
#include "ds/stringdatabase.h"
#include "execproc.h"
#include "pipestream.h"
#include "pmtask.h"
#include "psock.h"
#include "tasks/taskmap.h"

namespace {
// First of all, so that it is there before anything that may use it and goes after that.
[[maybe_unused]] const auto& strings = StringDatabase();
} // namespace

const int zelIPipeEvent::eventKind = zelEvent::AllocEventKind();
// NOLINTNEXTLINE(cppcoreguidelines-interfaces-global-init): that one is there before any code runs
void* const pmInfoBridge::nullHandle = badThreadHandle;

namespace {
[[maybe_unused]] const auto& tasks = TaskMap();
} // namespace

const int ptkExecProcessEvent::eventKind = zelEvent::AllocEventKind();
const int ptkAsyncCallEvent::eventKind = zelEvent::AllocEventKind();
const int ptkStrictTaskEvent::eventKind = zelEvent::AllocEventKind();
const int zelSocketEvent::eventKind = zelEvent::AllocEventKind();
