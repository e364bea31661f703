// SPDX-License-Identifier: MIT
//
// What an input may take: the target may never have 64 MiB more on the heap than when its first
// input began, the fuzzer's own memory aside. Each allocation in a target is counted, since the
// resident size would tell more of the sanitizer's shadow and of freed blocks that it keeps back.
#include <atomic>
#include <cstddef>
#include <cstdint>

#include <sanitizer/allocator_interface.h>
#include <unistd.h>

#include "fuzz/support/require.h"

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the name is given.
extern "C" const char* __asan_default_options();
const char* __asan_default_options() {
    return "quarantine_size_mb=32";
}

/// The target's own function, which has this name where it is compiled.
extern "C" int PlinthTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::int64_t allowance = std::int64_t{64} << 20;

std::atomic<bool> inTarget{false};
std::atomic<std::int64_t> taken{0}; ///< by targets since the start, and not given back

void OnAllocation(const volatile void*, std::size_t size) {
    if (inTarget && (taken += static_cast<std::int64_t>(size)) > allowance) {
        inTarget = false;
        constexpr char told[] = "the target takes more than 64 MiB\n";
        [[maybe_unused]] const auto written = write(STDERR_FILENO, told, sizeof told - 1);
        Require(false);
    }
}

void OnRelease(const volatile void* block) {
    if (inTarget && block != nullptr)
        taken -= static_cast<std::int64_t>(
            __sanitizer_get_allocated_size(const_cast<const void*>(block)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int installed = __sanitizer_install_malloc_and_free_hooks(OnAllocation, OnRelease);
    Require(installed != 0);
    inTarget = true;
    const int result = PlinthTestOneInput(data, size);
    inTarget = false;
    return result;
}
