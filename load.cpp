// SPDX-License-Identifier: MIT
//
// What happens when the library is loaded, in this order and nowhere else. Initialisers in one
// file run from top to bottom; spread over several files their order would be the linker's.

#include "ds/stringdatabase.h"
#include "execproc.h"
#include "pipestream.h"
#include "psock.h"

namespace {
// First of all, so that it is there before anything that may use it and goes after that.
[[maybe_unused]] const auto& strings = StringDatabase();
} // namespace

const int zelIPipeEvent::eventKind = zelEvent::AllocEventKind();
const int ptkExecProcessEvent::eventKind = zelEvent::AllocEventKind();
const int zelSocketEvent::eventKind = zelEvent::AllocEventKind();
