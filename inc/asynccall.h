// SPDX-License-Identifier: MIT
//
// One function on a thread of its own, with an event for its end.
//
//     std::unique_ptr<ptkAsyncCallEvent> call(call_async_func(work, &input));
//     ...
//     if (call && call->Wait(-1))
//         use(call->GetReturnValue());
#ifndef PLINTH_ASYNCCALL_H
#define PLINTH_ASYNCCALL_H

#include "outside/varnholt/events.h"
#include "outside/zelexport.h"

/// Fires when the function has returned. The event belongs to the caller, for one thread at a
/// time, and may go at any moment: the function runs on, and what it uses must last.
class ZEL_EXPORT ptkAsyncCallEvent : public zelEvent {
public:
    ~ptkAsyncCallEvent() override;

    /// What the function has returned; -1 while it runs. The event tells a -1 of the function's
    /// own from that one.
    int GetReturnValue();

    /// The event as one of this class, or null if it is of another. Requires: not null.
    static ptkAsyncCallEvent* cast(zelEvent* event);

private:
    friend ptkAsyncCallEvent* call_async_func(int (*function)(void*), void* argument);
    ptkAsyncCallEvent(void* launched, void* passed);

    int GetKind() override;
    void* GetInfo() override;

    static const int eventKind;

    int returnValue;
    void* thread;                    ///< the launch; the word -1 once the result is known
    [[maybe_unused]] void* argument; // for whoever looks at the event in a debugger
};

/// Runs `function(argument)` on a new thread and returns at once. The caller deletes the event.
/// As with std::thread, an exception that leaves the function ends the program.
///
/// Null when there is no thread or no memory for an event to be had; in the second case the
/// function runs all the same.
[[nodiscard]] ZEL_EXPORT ptkAsyncCallEvent* call_async_func(int (*function)(void*), void* argument);

#endif
