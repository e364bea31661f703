// SPDX-License-Identifier: MIT
#include "asynccall.h"

#include <new>

#include "outside/varnholt/threads.h"
#include "outside/win32/handles.h"

namespace {

void* NoThread() {
    return zelHandleOfDescriptor(-1);
}

} // namespace

ptkAsyncCallEvent::ptkAsyncCallEvent(void* launched, void* passed)
    : zelEvent(new (std::nothrow) zelMOEvent(launched, 2)), returnValue(-1), thread(launched),
      argument(passed) {}

ptkAsyncCallEvent::~ptkAsyncCallEvent() {
    // Nobody can ask for the result any more: the record of a function that still runs goes when
    // that has returned.
    if (thread != NoThread())
        StrictThread_Free(thread);
}

int ptkAsyncCallEvent::GetReturnValue() {
    if (thread != NoThread() && StrictThread_GetExitCode(thread, &returnValue)) {
        StrictThread_Free(thread);
        thread = NoThread();
    }
    return returnValue;
}

int ptkAsyncCallEvent::GetKind() {
    return eventKind;
}

void* ptkAsyncCallEvent::GetInfo() {
    return this;
}

ptkAsyncCallEvent* ptkAsyncCallEvent::cast(zelEvent* event) {
    return event->GetKind() == eventKind ? static_cast<ptkAsyncCallEvent*>(event->GetInfo())
                                         : nullptr;
}

ptkAsyncCallEvent* call_async_func(int (*function)(void*), void* argument) {
    void* const thread = StrictThread_Launch(function, argument, nullptr);
    if (thread == NoThread())
        return nullptr;
    auto* const event = new (std::nothrow) ptkAsyncCallEvent(thread, argument);
    if (event == nullptr)
        StrictThread_Free(thread);
    return event;
}
