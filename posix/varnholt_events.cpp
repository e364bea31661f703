// SPDX-License-Identifier: MIT
#include "outside/varnholt/events.h"

#include <algorithm>
#include <atomic>
#include <vector>

#include "posix/polling.h"
#include "posix/syscalls.h"

namespace {

short InterestOf(zelBaseEvent::Readiness readiness) {
    switch (readiness) {
    case zelBaseEvent::Writable:
        return POLLOUT;
    case zelBaseEvent::Exceptional:
        return POLLPRI;
    case zelBaseEvent::Readable:
        break;
    }
    return POLLIN;
}

/// Whether what poll reports is what was waited for: poll reports hang-ups and errors to
/// everybody, also to those who asked for neither.
bool HasFired(const pollfd& entry) {
    short wanted = entry.events;
    if (entry.events & POLLIN)
        wanted |= POLLHUP | POLLERR;
    if (entry.events & POLLOUT)
        wanted |= POLLERR;
    return (entry.revents & wanted) != 0;
}

/// The descriptors of a set of events in the order of the events. The usual handful of events
/// costs no heap.
class PollSet {
public:
    explicit PollSet(unsigned int count) {
        if (count > fewCount)
            many.resize(count);
        entries = count > fewCount ? many.data() : few;
    }
    pollfd* Data() { return entries; }
    pollfd& operator[](unsigned int index) { return entries[index]; }

private:
    static constexpr unsigned int fewCount = 16;
    pollfd few[fewCount] = {};
    std::vector<pollfd> many;
    pollfd* entries;
};

} // namespace

zelBaseEvent::~zelBaseEvent() = default;

zelBaseEvent::Readiness zelBaseEvent::GetReadiness() const {
    return Readable;
}

zelSelectEvent::zelSelectEvent(unsigned int watched, Type wanted) : socket(watched), type(wanted) {}

int zelSelectEvent::GetDescriptor() {
    return static_cast<int>(socket);
}

zelBaseEvent::Readiness zelSelectEvent::GetReadiness() const {
    return type;
}

zelEvent::zelEvent(zelBaseEvent* owned) : base(owned) {}

zelEvent::~zelEvent() = default;

bool zelEvent::OnEventSignaled() {
    return true;
}

void zelEvent::OnReset() {}

int zelEvent::AllocEventKind() {
    static std::atomic<int> last{0};
    return ++last;
}

int zelEvent::GetDescriptor() {
    return base ? base->GetDescriptor() : -1;
}

bool zelEvent::IsSignaled() {
    const sys::KeepErrno keep;
    pollfd entry{GetDescriptor(), base ? InterestOf(base->GetReadiness()) : short{0}, 0};
    return posix::PollUntil(&entry, 1, posix::Deadline::InMilliseconds(0)) > 0 && HasFired(entry);
}

bool zelEvent::Wait(int msec) {
    zelEvent* self = this;
    return WaitAny(&self, 1, msec) == 0;
}

int zelEvent::WaitAny(zelEvent* const* events, unsigned int count, int msec) {
    const sys::KeepErrno keep;
    const posix::Deadline deadline = posix::Deadline::InMilliseconds(msec);
    PollSet set(count);
    for (unsigned int i = 0; i < count; ++i) {
        set[i].fd = -1;
        if (events[i] == nullptr)
            continue;
        events[i]->OnReset();
        set[i].fd = events[i]->GetDescriptor();
        if (events[i]->base)
            set[i].events = InterestOf(events[i]->base->GetReadiness());
    }
    for (;;) {
        const auto canFire = [](const pollfd& entry) { return entry.fd >= 0; };
        if (msec < 0 && std::none_of(set.Data(), set.Data() + count, canFire))
            return -1;
        const int ready = posix::PollUntil(set.Data(), count, deadline);
        if (ready <= 0)
            return -1;
        for (unsigned int i = 0; i < count; ++i) {
            pollfd& entry = set[i];
            if (entry.revents == 0)
                continue;
            if (!HasFired(entry))
                entry.fd = -1; // only a hang-up that nobody asked for: it would never go away
            else if (events[i]->OnEventSignaled())
                return static_cast<int>(i);
            else
                events[i]->OnReset();
        }
        if (deadline.Left() == std::chrono::nanoseconds::zero())
            return -1;
    }
}
