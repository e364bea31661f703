// SPDX-License-Identifier: MIT
//
// Threads that are stopped, and signal handlers, come here as well: so there is no lock, only
// atomics.
#include "posix/faultplan.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iterator>
#include <string_view>

namespace sys {

namespace {

constinit Fault plan; // written while nth is 0
constinit std::atomic<unsigned long> nth{0};
constinit std::atomic<unsigned long> calls{0};
constinit std::atomic<const char*> hit{nullptr};
constinit std::atomic<unsigned> cripples{0};

/// The call that was interrupted last, and goes through when it is made again. In the static block
/// of thread-local storage, which is there also in a signal handler.
[[gnu::tls_model("initial-exec")]] thread_local const char* interrupted = nullptr;

[[gnu::constructor]] void ReadEnvironment() {
    const char* const words = std::getenv("PLINTH_CRIPPLED");
    const std::string_view all = words != nullptr ? words : "";
    const auto named = [&](std::string_view word, unsigned cripple) {
        return all.find(word) != all.npos ? cripple : 0;
    };
    SetCripples(named("one-byte", OneByte) | named("interrupted", Interrupted) |
                named("no-pidfd", NoPidfd));
}

bool CanBeInterrupted(std::string_view name) {
    static constexpr std::string_view names[] = {"accept4", "connect", "copy_file_range",
                                                 "flock",   "futex",   "open",
                                                 "openat",  "ppoll",   "read",
                                                 "recv",    "send",    "waitid",
                                                 "write"};
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

bool IsPlanned(std::string_view name) {
    const unsigned long wanted = nth.load();
    return wanted != 0 && (plan.name == nullptr || plan.name == name) &&
           calls.fetch_add(1) + 1 == wanted;
}

} // namespace

void PlanFault(const Fault& fault) {
    nth = 0;
    plan = fault;
    calls = 0;
    hit = nullptr;
    nth = fault.nth;
}

unsigned long PlannedCalls() {
    return calls;
}

const char* PlannedCall() {
    return hit;
}

void SetCripples(unsigned wanted) {
    cripples = wanted;
}

int Consult(const char* name, std::size_t* size) {
    const auto shorten = [size] {
        if (size != nullptr)
            *size = std::min<std::size_t>(*size, 1);
    };
    if (IsPlanned(name)) {
        hit = name;
        if (plan.error == Fault::oneByte)
            shorten();
        return plan.error;
    }
    const unsigned now = cripples.load();
    if ((now & NoPidfd) != 0 && name == std::string_view("pidfd_open"))
        return ENOSYS;
    if ((now & Interrupted) != 0 && CanBeInterrupted(name)) {
        interrupted = interrupted == name ? nullptr : name;
        if (interrupted != nullptr)
            return EINTR;
    }
    if ((now & OneByte) != 0)
        shorten();
    return 0;
}

bool TakesEffect(const char* name, int error) {
    const std::string_view call = name;
    return call == "close" || (call == "connect" && error == EINTR);
}

} // namespace sys
