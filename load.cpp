// SPDX-License-Identifier: MIT
//
// What happens when the library is loaded, in this order and nowhere else. Initialisers in one
// file run from top to bottom; spread over several files their order would be the linker's.

#include "psock.h"

const int zelSocketEvent::eventKind = zelEvent::AllocEventKind();
