// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <climits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "outside/varnholt/events.h"
#include "posix/epollcalls.h"
#include "posix/polling.h"
#include "posix/readiness.h"

namespace {

/// What is left until a deadline as epoll takes it: no wait ends before its time.
int MillisecondsUntil(const posix::Deadline& deadline) {
    const std::optional<std::chrono::nanoseconds> left = deadline.Left();
    if (!left)
        return -1;
    const auto whole = std::chrono::ceil<std::chrono::milliseconds>(*left).count();
    return static_cast<int>(std::min<decltype(whole)>(whole, INT_MAX));
}

} // namespace

/// The system's part of a set. Each event is registered under its own address.
class zelEventSet::Watch {
public:
    ~Watch() {
        const sys::KeepErrno keep;
        for (const auto& [event, entry] : entries)
            CloseCopy(entry);
        if (descriptor >= 0)
            sys::close(descriptor);
    }

    int Descriptor() {
        if (descriptor < 0)
            descriptor = sys::epoll_create1(EPOLL_CLOEXEC);
        return descriptor;
    }

    bool Add(zelEvent* event) {
        if (Descriptor() < 0)
            return false;
        const int watched = event->GetDescriptor();
        if (watched < 0 || entries.count(event) != 0) {
            errno = watched < 0 ? EBADF : EEXIST;
            return false;
        }
        const auto place = entries.emplace(event, Entry{}).first;
        Entry& entry = place->second;
        entry = {watched, false, posix::InterestOf(event->base->GetReadiness())};
        if (Tell(EPOLL_CTL_ADD, event, entry))
            return true;
        // One descriptor can be registered once; a copy of it is another.
        if (errno == EEXIST) {
            entry.descriptor = sys::fcntl(watched, F_DUPFD_CLOEXEC, 0);
            entry.copied = entry.descriptor >= 0;
            if (entry.copied && Tell(EPOLL_CTL_ADD, event, entry))
                return true;
        }
        const sys::KeepErrno keep;
        CloseCopy(entry);
        entries.erase(place);
        return false;
    }

    bool Remove(zelEvent* event) {
        const auto place = entries.find(event);
        if (place == entries.end())
            return false;
        const sys::KeepErrno keep;
        Tell(EPOLL_CTL_DEL, event, place->second);
        std::erase(hungUp, event);
        CloseCopy(place->second);
        entries.erase(place);
        return true;
    }

    /// What a wait begins with: events that have fired, or were hung up, count again.
    void Reset() {
        if (zelEvent* const event = std::exchange(fired, nullptr); entries.count(event) != 0)
            event->OnReset();
        for (zelEvent* const event : std::exchange(hungUp, {}))
            Tell(EPOLL_CTL_MOD, event, entries.at(event));
    }

    /// The event that has fired and says so, null when the time has run out.
    zelEvent* Wait(const posix::Deadline& deadline) {
        do {
            if (deadline.IsNever() && entries.size() == hungUp.size())
                return nullptr;
            if (entries.empty()) { // takes no descriptor, and can wait where there is none
                posix::PollUntil(nullptr, 0, deadline);
                return nullptr;
            }
            epoll_event ready{};
            const int count = sys::retry([&] {
                return sys::epoll_wait(descriptor, &ready, 1, MillisecondsUntil(deadline));
            });
            if (count <= 0)
                return nullptr;
            auto* const event = static_cast<zelEvent*>(ready.data.ptr);
            const Entry& entry = entries.at(event);
            if (!posix::HasFired({-1, entry.interest, static_cast<short>(ready.events)})) {
                IgnoreHangUp(event, entry);
            } else if (event->OnEventSignaled()) {
                return fired = event;
            } else {
                event->OnReset();
            }
        } while (!deadline.HasPassed());
        return nullptr;
    }

private:
    struct Entry {
        int descriptor = -1;
        bool copied = false;
        short interest = 0;
    };

    bool Tell(int operation, zelEvent* event, const Entry& entry, std::uint32_t extra = 0) const {
        epoll_event wanted{};
        wanted.events = static_cast<std::uint32_t>(entry.interest) | extra;
        wanted.data.ptr = event;
        return sys::epoll_ctl(descriptor, operation, entry.descriptor, &wanted) == 0;
    }
    /// One that nobody asked for would be told for ever: until the next wait, only what is new.
    void IgnoreHangUp(zelEvent* event, const Entry& entry) {
        if (std::find(hungUp.begin(), hungUp.end(), event) != hungUp.end())
            return; // a change is told once more
        hungUp.push_back(event);
        Tell(EPOLL_CTL_MOD, event, entry, EPOLLET);
    }
    static void CloseCopy(const Entry& entry) {
        if (entry.copied)
            sys::close(entry.descriptor);
    }

    int descriptor = -1;
    std::unordered_map<zelEvent*, Entry> entries;
    zelEvent* fired = nullptr;
    std::vector<zelEvent*> hungUp;
};

zelEventSet::zelEventSet() : watch(std::make_unique<Watch>()) {}

zelEventSet::~zelEventSet() = default;

bool zelEventSet::Add(zelEvent* event) {
    const int before = errno;
    if (!watch->Add(event))
        return false;
    errno = before;
    event->OnReset();
    return true;
}

bool zelEventSet::Remove(zelEvent* event) {
    return watch->Remove(event);
}

zelEvent* zelEventSet::Wait(int msec) {
    const sys::KeepErrno keep;
    const posix::Deadline deadline = posix::Deadline::InMilliseconds(msec);
    watch->Reset();
    return watch->Wait(deadline);
}

int zelEventSet::GetDescriptor() {
    return watch->Descriptor();
}
