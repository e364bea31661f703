// SPDX-License-Identifier: MIT
#include "posix/endevent.h"

#include "posix/threadcalls.h"

namespace posix {

int EndEvent::Acquire() {
    std::uint64_t state = word.load();
    for (;;) {
        if (DescriptorIn(state) >= 0) {
            if (word.compare_exchange_weak(state, state + holder))
                return DescriptorIn(state);
            continue;
        }
        const int made = sys::eventfd((state & fired) != 0 ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (made < 0)
            return -1;
        const std::uint64_t wanted =
            (state & fired) | holder | static_cast<std::uint32_t>(made + 1);
        if (word.compare_exchange_strong(state, wanted))
            return made;
        sys::close(made);
    }
}

void EndEvent::Release() {
    std::uint64_t state = word.load();
    std::uint64_t wanted = 0;
    do {
        wanted = state - holder;
        if ((wanted & ~fired) < holder) // the last one
            wanted &= fired;
    } while (!word.compare_exchange_weak(state, wanted));
    if (DescriptorIn(wanted) < 0) {
        const sys::KeepErrno keep;
        sys::close(DescriptorIn(state));
    }
}

void EndEvent::Fire() {
    std::uint64_t state = word.load();
    std::uint64_t wanted = 0;
    do {
        wanted = state | fired;
        if (DescriptorIn(state) >= 0)
            wanted += holder;
    } while (!word.compare_exchange_weak(state, wanted));
    if (DescriptorIn(state) >= 0) {
        const sys::KeepErrno keep;
        sys::eventfd_write(DescriptorIn(state), 1);
        Release();
    }
}

} // namespace posix
