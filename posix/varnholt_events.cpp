// SPDX-License-Identifier: MIT
#include "outside/varnholt/events.h"

#include <algorithm>
#include <atomic>
#include <vector>

#include "posix/polling.h"
#include "posix/readiness.h"
#include "posix/syscalls.h"

namespace {

/// The descriptors that can fire, in the order of their events, each with the index of its event.
/// Events without one are left out. The usual handful of events costs no heap.
class PollSet {
public:
    explicit PollSet(unsigned int most) {
        if (most > fewCount) {
            manyEntries.resize(most);
            manyOwners.resize(most);
            entries = manyEntries.data();
            owners = manyOwners.data();
        }
    }
    unsigned int Size() const { return size; }
    pollfd* Data() { return entries; }
    const pollfd& operator[](unsigned int at) const { return entries[at]; }
    unsigned int OwnerOf(unsigned int at) const { return owners[at]; }
    void Add(const pollfd& entry, unsigned int owner) {
        entries[size] = entry;
        owners[size++] = owner;
    }
    void Remove(unsigned int at) {
        std::copy(entries + at + 1, entries + size, entries + at);
        std::copy(owners + at + 1, owners + size, owners + at);
        --size;
    }

private:
    static constexpr unsigned int fewCount = 16;
    pollfd fewEntries[fewCount];
    unsigned int fewOwners[fewCount];
    std::vector<pollfd> manyEntries;
    std::vector<unsigned int> manyOwners;
    pollfd* entries = fewEntries;
    unsigned int* owners = fewOwners;
    unsigned int size = 0;
};

} // namespace

zelBaseEvent::~zelBaseEvent() = default;

zelBaseEvent::Readiness zelBaseEvent::GetReadiness() const {
    return Readable;
}

std::optional<bool> zelBaseEvent::WaitAlone(int) {
    return std::nullopt;
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
    if (const auto ready = base ? base->WaitAlone(0) : std::nullopt)
        return *ready;
    pollfd entry{GetDescriptor(), base ? posix::InterestOf(base->GetReadiness()) : short{0}, 0};
    return posix::PollUntil(&entry, 1, posix::Deadline::InMilliseconds(0)) > 0 &&
           posix::HasFired(entry);
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
        if (events[i] == nullptr)
            continue;
        events[i]->OnReset();
        if (count == 1 && events[0]->base)
            if (const std::optional<bool> ready = events[0]->base->WaitAlone(msec)) {
                if (!*ready || events[0]->OnEventSignaled())
                    return *ready ? 0 : -1;
                events[0]->OnReset();
            }
        const int descriptor = events[i]->GetDescriptor();
        if (descriptor >= 0)
            set.Add({descriptor, posix::InterestOf(events[i]->base->GetReadiness()), 0}, i);
    }
    for (;;) {
        if (msec < 0 && set.Size() == 0)
            return -1;
        if (posix::PollUntil(set.Data(), set.Size(), deadline) <= 0)
            return -1;
        for (unsigned int at = 0; at < set.Size();) {
            const pollfd& entry = set[at];
            zelEvent& event = *events[set.OwnerOf(at)];
            if (entry.revents == 0) {
                ++at;
            } else if (!posix::HasFired(entry)) {
                set.Remove(at); // only a hang-up that nobody asked for: it would never go away
            } else if (event.OnEventSignaled()) {
                return static_cast<int>(set.OwnerOf(at));
            } else {
                event.OnReset();
                ++at;
            }
        }
        if (deadline.Left() == std::chrono::nanoseconds::zero())
            return -1;
    }
}
