// SPDX-License-Identifier: MIT
//
// What can happen to the system calls of the platform layer in a build with PLINTH_FAULTS: the n-th
// call fails, or every call is made hard to get right. Tests set it; other builds have none of it.
#ifndef PLINTH_POSIX_FAULTPLAN_H
#define PLINTH_POSIX_FAULTPLAN_H

#include <cerrno>
#include <cstddef>
#include <type_traits>

#include "outside/zelexport.h"

namespace sys {

/// One call that goes wrong. Calls of all threads count, from the moment that the plan is set.
struct Fault {
    const char* name = nullptr; ///< of the call, null: any
    unsigned long nth = 0;      ///< 1: the first one; 0: none
    int error = 0;              ///< that it fails with, or one of those below

    static constexpr int oneByte = 0;      ///< it moves one byte, if it moves any
    static constexpr int nothingToDo = -1; ///< a wait finds nothing, a transfer would block
};

ZEL_EXPORT void PlanFault(const Fault& fault);
/// Calls of the name in the plan since it was set.
ZEL_EXPORT unsigned long PlannedCalls();
/// The name of the n-th call of the plan, null if there was none yet.
ZEL_EXPORT const char* PlannedCall();

/// What every call suffers from while it is set. PLINTH_CRIPPLED in the environment sets it for a
/// whole run: the words one-byte, interrupted and no-pidfd, in any order.
enum Cripple : unsigned {
    OneByte = 1,     ///< every transfer moves one byte
    Interrupted = 2, ///< every call that a signal can interrupt is interrupted, once
    NoPidfd = 4,     ///< the system has no descriptors of processes
};
ZEL_EXPORT void SetCripples(unsigned cripples);

/// What is to happen to this call: the number of an error, 0 if it is made.
ZEL_EXPORT int Consult(const char* name, std::size_t* size = nullptr);
/// Whether the call has its effect although it fails so: a closed descriptor is gone, and a
/// connection goes on behind an interrupted call.
ZEL_EXPORT bool TakesEffect(const char* name, int error);

template <typename Call>
auto called(const char* name, Call call) -> decltype(call()) {
    const int error = Consult(name);
    if (error == 0)
        return call();
    if constexpr (std::is_pointer_v<decltype(call())>) {
        errno = error;
        return nullptr;
    } else {
        if (error == Fault::nothingToDo)
            return 0;
        if (TakesEffect(name, error))
            if (const auto result = call(); result != 0)
                return result;
        errno = error;
        return -1;
    }
}

template <typename Call>
int numbered(const char* name, Call call) {
    const int error = Consult(name);
    return error > 0 ? error : call();
}

template <typename Call>
auto transfer(const char* name, std::size_t size, Call call) -> decltype(call(size)) {
    const int error = Consult(name, &size);
    if (error == 0)
        return call(size);
    errno = error == Fault::nothingToDo ? EAGAIN : error;
    return -1;
}

} // namespace sys

#endif
