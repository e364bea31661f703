// SPDX-License-Identifier: MIT
//
// The size of a file system in factors of 32 bits.
#ifndef PLINTH_POSIX_DISKFACTORS_H
#define PLINTH_POSIX_DISKFACTORS_H

#include <cstdint>

namespace posix {

struct DiskFactors {
    std::uint32_t sectorsPerCluster;
    std::uint32_t bytesPerSector;
    std::uint32_t freeClusters;
    std::uint32_t totalClusters;
};

/// Factors for `total` blocks of `blockSize` bytes, `free` of them free. Where the counts do not
/// fit 32 bits the cluster is doubled until they do, and a part of a cluster is dropped: at most
/// one part in 2^31 of the whole.
constexpr DiskFactors FactorsOf(std::uint64_t blockSize, std::uint64_t free, std::uint64_t total) {
    const bool inSectors = blockSize % 512 == 0;
    std::uint64_t sectors = inSectors ? blockSize / 512 : 1;
    const std::uint64_t sector = inSectors ? 512 : blockSize;
    while ((free > UINT32_MAX || total > UINT32_MAX) && sectors <= UINT32_MAX / 2) {
        sectors *= 2;
        free /= 2;
        total /= 2;
    }
    const auto low = [](std::uint64_t value) {
        return static_cast<std::uint32_t>(value < UINT32_MAX ? value : UINT32_MAX);
    };
    return {low(sectors), low(sector), low(free), low(total)};
}

} // namespace posix

#endif
