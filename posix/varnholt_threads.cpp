// SPDX-License-Identifier: MIT
#include "outside/varnholt/threads.h"

#include <cassert>
#include <new>

#include "outside/varnholt/events.h"
#include "outside/win32/handles.h"
#include "posix/thread.h"

namespace {

class FunctionThread final : public posix::Thread {
public:
    FunctionThread(int (*called)(void*), void* passed) : function(called), argument(passed) {}

private:
    unsigned int Run() override { return static_cast<unsigned int>(function(argument)); }

    int (*function)(void*);
    void* argument;
};

} // namespace

void* StrictThread_Launch(int (*function)(void*), void* argument,
                          [[maybe_unused]] void (*notify)(void*, bool)) {
    assert(notify == nullptr);
    std::unique_ptr<posix::Thread> made(new (std::nothrow) FunctionThread(function, argument));
    posix::HandleObject* const thread = posix::Thread::Launch(std::move(made), 0);
    return thread != nullptr ? thread : zelHandleOfDescriptor(-1);
}

bool StrictThread_GetExitCode(void* handle, int* code) {
    posix::Thread* const thread = posix::Thread::FromHandle(handle);
    if (thread == nullptr)
        return false;
    const std::optional<unsigned int> known = thread->ExitCode();
    if (known)
        *code = static_cast<int>(*known);
    return known.has_value();
}

void StrictThread_Free(void* thread) {
    CloseHandle(thread);
}

zelMOEvent::zelMOEvent(void* handle, [[maybe_unused]] int type) {
    assert(type == 2);
    if (posix::Thread* const thread = posix::Thread::FromHandle(handle)) {
        thread->Hold();
        watched = thread;
    }
}

zelMOEvent::~zelMOEvent() {
    if (auto* const thread = static_cast<posix::Thread*>(watched)) {
        if (descriptor >= 0)
            thread->End().Release();
        thread->Drop();
    }
}

std::optional<bool> zelMOEvent::WaitAlone(int msec) {
    auto* const thread = static_cast<posix::Thread*>(watched);
    if (thread == nullptr)
        return std::nullopt;
    // Asked for the code, it also knows of an end that only the descriptor has told yet.
    return thread->ExitCode() || thread->WaitEnded(posix::Deadline::InMilliseconds(msec));
}

int zelMOEvent::GetDescriptor() {
    auto* const thread = static_cast<posix::Thread*>(watched);
    if (descriptor < 0 && thread != nullptr)
        descriptor = thread->End().Acquire();
    return descriptor;
}
