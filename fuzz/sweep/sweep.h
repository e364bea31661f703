// SPDX-License-Identifier: MIT
//
// The sweep: every operation of the library under every failure of the system that can reach it.
// A scenario is a short piece of work with what must hold afterwards. The driver runs it with its
// first system call failing, then with the second, and so on, each with every error that such a
// call can give, and then with each allocation failing, until a run goes through untouched.
#ifndef PLINTH_SWEEP_H
#define PLINTH_SWEEP_H

#include <filesystem>
#include <new>
#include <span>
#include <string>

namespace sweep {

struct Scenario {
    const char* name;
    /// What it covers: demangled names without parameters, `*` for any run of characters.
    const char* operations;
    void (*run)();
};

struct Family {
    const char* name;
    std::span<const Scenario> scenarios;
    /// Whether all is to hold where processes have no descriptors as well.
    bool hasProcesses = false;
};

extern const Family files, locks, memory, pipes, processes, sockets, text, threads;

/// What is to hold, whatever has failed.
void Expect(bool holds, const char* what, int line = __builtin_LINE());

/// Whether this run has met its fault by now.
bool Hit();
/// Whether all must go well: nothing has failed by now, or only in a way that nobody may notice,
/// like an interruption or a transfer in parts.
bool MustWork();
/// Whether the failing call is the one of this name.
bool HitIn(const char* call);
/// Whether there was, or can be, a want of memory.
bool MemoryFails();

/// The fault can strike as long as one of these lives; before and after, the scenario prepares and
/// looks at the outcome undisturbed.
class Armed {
public:
    Armed();
    Armed(const Armed&) = delete;
    Armed& operator=(const Armed&) = delete;
    ~Armed();
};

/// Makes the call where the fault can strike. False if memory ran out, which it may say only where
/// that was the fault.
template <typename Call>
bool Try(Call call, int line = __builtin_LINE()) {
    try {
        const Armed armed;
        call();
        return true;
    } catch (const std::bad_alloc&) {
        Expect(MemoryFails() && Hit(), "memory runs out only where it does", line);
        return false;
    }
}

/// The same for what gives a result.
template <typename Result, typename Call>
Result Try(Result otherwise, Call call, int line = __builtin_LINE()) {
    Try([&] { otherwise = call(); }, line);
    return otherwise;
}

/// A private folder that is the current one, and goes with all that is in it.
class Folder {
public:
    Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder();

    static void Put(const char* path, const std::string& contents);
    static std::string Get(const char* path); ///< "(none)" if it is not there

private:
    std::filesystem::path former, path;
};

} // namespace sweep

#endif
