// SPDX-License-Identifier: MIT
#include "posix/codeguard.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include <dlfcn.h>
#include <link.h>
#include <sys/auxv.h>
#include <ucontext.h>

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the sanitizer's name
extern "C" void __tsan_init() __attribute__((weak));

namespace posix {

namespace {

struct Place {
    std::uintptr_t code;  ///< the instruction that comes next
    std::intptr_t result; ///< what a system call just before it has given
};

// A system call is made by an instruction of two bytes, `callCode` but for the bits outside of
// `callMask`.
#if defined(__x86_64__)
constexpr bool isKnown = true;
constexpr unsigned char callCode[] = {0x0F, 0x05}, callMask[] = {0xFF, 0xFF};
Place PlaceOf(const ucontext_t& context) {
    return {static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RIP]),
            static_cast<std::intptr_t>(context.uc_mcontext.gregs[REG_RAX])};
}
#elif defined(__i386__)
// However the kernel was entered, it goes back to behind this one in its own page.
constexpr bool isKnown = true;
constexpr unsigned char callCode[] = {0xCD, 0x80}, callMask[] = {0xFF, 0xFF};
Place PlaceOf(const ucontext_t& context) {
    return {static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_EIP]),
            static_cast<std::intptr_t>(context.uc_mcontext.gregs[REG_EAX])};
}
#elif defined(__s390x__)
constexpr bool isKnown = true;
constexpr unsigned char callCode[] = {0x0A, 0x00}, callMask[] = {0xFF, 0x00}; // with its number
Place PlaceOf(const ucontext_t& context) {
    return {static_cast<std::uintptr_t>(context.uc_mcontext.psw.addr),
            static_cast<std::intptr_t>(context.uc_mcontext.gregs[2])};
}
#else
constexpr bool isKnown = false;
constexpr unsigned char callCode[] = {0, 0}, callMask[] = {0, 0};
Place PlaceOf(const ucontext_t&) {
    return {};
}
#endif

struct Range {
    std::uintptr_t begin;
    std::uintptr_t end;
};

/// Written once, before the handler that reads it is installed.
class GuardedCode {
public:
    GuardedCode() {
        // Asked by name, so that whoever takes the place of the C library's own is found, and it
        // itself by the one call whose place nobody takes.
        const char* const names[] = {
            "malloc",          "free",       "read", "pthread_mutex_lock", "__tls_get_addr",
            "___tls_get_addr", "sched_yield"};
        for (const char* name : names)
            if (void* found = dlsym(RTLD_DEFAULT, name))
                AddModuleOf(reinterpret_cast<std::uintptr_t>(found));
        // 32-bit system calls are made from a page that the kernel maps.
        if (sizeof(void*) == 4)
            AddModuleOf(static_cast<std::uintptr_t>(getauxval(AT_SYSINFO_EHDR)));
    }

    [[nodiscard]] bool Holds(std::uintptr_t code) const {
        for (std::size_t i = 0; i < count; ++i)
            if (code >= ranges[i].begin && code < ranges[i].end)
                return true;
        return false;
    }

    /// True if the place is that of a system call in here that a signal has cut short.
    [[nodiscard]] bool HoldsSleeper(const Place& place) const {
        if (place.result != -EINTR || !Holds(place.code))
            return false;
        unsigned char before[sizeof callCode];
        std::memcpy(before, reinterpret_cast<const char*>(place.code) - sizeof before,
                    sizeof before);
        return (before[0] & callMask[0]) == callCode[0] && (before[1] & callMask[1]) == callCode[1];
    }

private:
    struct Search {
        GuardedCode* found;
        std::uintptr_t address;
        bool isFirst; ///< the first module is the program: what it runs is never out of bounds
    };

    void AddModuleOf(std::uintptr_t address) {
        Search search{this, address, true};
        dl_iterate_phdr(&GuardedCode::Visit, &search);
    }

    static int Visit(dl_phdr_info* module, std::size_t, void* word) {
        Search& search = *static_cast<Search*>(word);
        const bool isProgram = search.isFirst;
        search.isFirst = false;
        if (isProgram || !Contains(*module, search.address))
            return 0;
        for (int i = 0; i < module->dlpi_phnum; ++i) {
            const auto& segment = module->dlpi_phdr[i];
            if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0)
                search.found->Add(RangeOf(*module, i));
        }
        return 1;
    }

    static Range RangeOf(const dl_phdr_info& module, int segment) {
        const std::uintptr_t begin = module.dlpi_addr + module.dlpi_phdr[segment].p_vaddr;
        return {begin, begin + module.dlpi_phdr[segment].p_memsz};
    }

    static bool Contains(const dl_phdr_info& module, std::uintptr_t address) {
        for (int i = 0; i < module.dlpi_phnum; ++i) {
            const Range range = RangeOf(module, i);
            if (module.dlpi_phdr[i].p_type == PT_LOAD && address >= range.begin &&
                address < range.end)
                return true;
        }
        return false;
    }

    void Add(Range range) {
        if (count < ranges.size() && !Holds(range.begin))
            ranges[count++] = range;
    }

    std::array<Range, 8> ranges{};
    std::size_t count = 0;
};

std::atomic<const GuardedCode*> guarded{nullptr};

} // namespace

void LearnGuardedCode() {
    // The thread sanitizer calls handlers later and from code of its own: nothing to be told.
    if (&__tsan_init != nullptr)
        return;
    static const GuardedCode learned;
    guarded.store(&learned);
}

bool IsInGuardedCode(const void* context) {
    const GuardedCode* code = guarded.load();
    if (!isKnown || code == nullptr)
        return false;
    const Place place = PlaceOf(*static_cast<const ucontext_t*>(context));
    return code->Holds(place.code) && !code->HoldsSleeper(place);
}

bool IsInHandler(const void* context, const sigset_t& usual) {
    // The kernel's set is the first eight bytes; what lies behind is nobody's.
    constexpr std::size_t size = 8;
    const GuardedCode* code = guarded.load();
    const ucontext_t& interrupted = *static_cast<const ucontext_t*>(context);
    return isKnown && code != nullptr && std::memcmp(&interrupted.uc_sigmask, &usual, size) != 0 &&
           !code->HoldsSleeper(PlaceOf(interrupted));
}

} // namespace posix
