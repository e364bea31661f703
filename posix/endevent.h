// SPDX-License-Identifier: MIT
//
// The end of something as a descriptor that can be polled, made only when somebody asks for it.
//
// One atomic word holds all there is: the descriptor, how many hold it, and whether the end has
// come. Whoever ends holds the descriptor while writing to it, so that it is closed by the last
// one to let go and a late end can never write into a number that was used again; and no wake-up
// is lost, since a descriptor made after the end is born signalled.
#ifndef PLINTH_POSIX_ENDEVENT_H
#define PLINTH_POSIX_ENDEVENT_H

#include <atomic>
#include <cstdint>

namespace posix {

class EndEvent {
public:
    /// The descriptor, readable from the end on; -1, with errno, where none is to be had. Each
    /// success is given back with Release.
    int Acquire();
    void Release();
    /// The end has come: called once. Descriptors that are held read so when the call is over.
    void Fire();
    /// True from the beginning of Fire on.
    [[nodiscard]] bool HasFired() const { return (word.load() & fired) != 0; }

private:
    // Bits 0 to 31: the descriptor + 1. Bits 32 to 62: its holders. Bit 63: the end has come.
    static constexpr std::uint64_t holder = std::uint64_t{1} << 32;
    static constexpr std::uint64_t fired = std::uint64_t{1} << 63;
    static int DescriptorIn(std::uint64_t state) {
        return static_cast<int>(static_cast<std::uint32_t>(state)) - 1;
    }

    std::atomic<std::uint64_t> word{0};
};

} // namespace posix

#endif
