// SPDX-License-Identifier: MIT
#include "outside/quillmarsh/abort.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace {
std::atomic<zelAbortHandler> abortHandler{nullptr};
}

void zelAbort(const char* message, const char* sourceFile, int line) {
    if (const zelAbortHandler handler = abortHandler) {
        handler(message, sourceFile, line);
        return;
    }
    std::fprintf(stderr, "%s (%s:%d)\n", message != nullptr ? message : "fatal error",
                 sourceFile != nullptr ? sourceFile : "unknown source", line);
    std::abort();
}

zelAbortHandler zelSetAbortHandler(zelAbortHandler handler) {
    return abortHandler.exchange(handler);
}
