// SPDX-License-Identifier: MIT
//
// usage: costs [WORD...]
//
// Prints what operations cost as the table of docs/costs.md; with words, only the rows that have
// one of them, and where repetitions differ. Status 77, with the reason, where the figures would
// not be those of the page.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

#include <gnu/libc-version.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "callnames.h"
#include "costs.h"
#include "trace.h"

namespace {

using costs::Taken;

const costs::Family* const families[] = {
    &costs::memory,   &costs::containers, &costs::text,     &costs::records, &costs::streams,
    &costs::locks,    &costs::tasks,      &costs::children, &costs::events,  &costs::connections,
    &costs::messages, &costs::files,      &costs::folders,
};

constexpr auto head = R"(# What operations cost

System calls and heap allocations of one operation, counted: `bench/costs` does each in a process
of its own, a few times to warm up and then several times more, while another process traces it.
Every call into the kernel counts, of all threads of the process, those that the C and C++ libraries
make as well; so does every block from the allocator, one that is given another size included. What
a row needs before and behind its operation does not count.

`scripts/test release` makes this table again and fails when a figure is another one. What has grown
is a fault, or has its reason in the commit that brings it; what has fallen is to be kept:

    scripts/checks/costs --update build/release/bench/costs/costs

The figures are those of the shared library in a release build by g++, with the C library 2.36 of
Debian 12, on 64-bit x86 under a kernel that has descriptors of processes. Elsewhere the test is
skipped and says why.

A launched child counts up to its `execve`, in a row of its own: the calls that make it what it is
before its program begins. What the program does then is its own affair, and not in here. Nor is the
time that is told without the kernel, nor the look-up of names, for which the C library asks this
and that, depending on the machine's network.
)";

long Sum(const std::map<long, int>& calls) {
    return std::accumulate(calls.begin(), calls.end(), 0L,
                           [](long sum, const auto& call) { return sum + call.second; });
}

std::string Listed(const std::map<long, int>& calls) {
    std::vector<std::string> names;
    for (const auto& [call, times] : calls)
        names.push_back(costs::NameOf(call) + (times > 1 ? " " + std::to_string(times) : ""));
    std::sort(names.begin(), names.end());
    std::string list;
    for (const std::string& name : names)
        list += (list.empty() ? "" : ", ") + name;
    return list;
}

bool Same(const Taken& one, const Taken& other) {
    return one.calls == other.calls && one.childCalls == other.childCalls &&
           one.allocations == other.allocations;
}

void PrintRow(const std::string& operation, const std::map<long, int>& calls, long allocations) {
    std::printf("| %s | %ld | %ld | %s |\n", operation.c_str(), Sum(calls), allocations,
                Listed(calls).c_str());
}

/// False if the row cannot be counted.
bool PrintRow(const costs::Row& row, bool verbose) {
    const auto counts = costs::CountsOf(row.run);
    if (!counts || counts->size() != costs::warmUps + costs::repetitions) {
        std::fprintf(stderr, "costs: cannot count: %s\n", row.operation);
        return false;
    }
    // The dearest of the repetitions: a cost that comes now and then is a cost.
    const auto first = counts->begin() + costs::warmUps;
    const auto dearest =
        std::max_element(first, counts->end(), [](const Taken& one, const Taken& other) {
            return Sum(one.calls) + one.allocations < Sum(other.calls) + other.allocations;
        });
    for (auto at = first; verbose && at != counts->end(); ++at)
        if (!Same(*at, *dearest))
            std::printf("other figures in repetition %td: %ld and %ld: %s\n", at - first,
                        Sum(at->calls), at->allocations, Listed(at->calls).c_str());
    PrintRow(row.operation, dearest->calls, dearest->allocations);
    if (!dearest->childCalls.empty())
        PrintRow(std::string(row.operation) + ": in the child before its program",
                 dearest->childCalls, 0);
    return true;
}

/// Why the figures would not be those of the page; empty if they are.
std::string Objection() {
    utsname system;
    uname(&system);
    if (std::strcmp(system.machine, "x86_64") != 0)
        return std::string("the processor is of another kind: ") + system.machine;
    if (std::strcmp(gnu_get_libc_version(), "2.36") != 0)
        return std::string("the C library is another one: ") + gnu_get_libc_version();
    const long descriptor = syscall(SYS_pidfd_open, getpid(), 0);
    if (descriptor == -1)
        return "the kernel has no descriptors of processes";
    close(static_cast<int>(descriptor));
    const auto counts = costs::CountsOf([] { costs::Count([] { syscall(SYS_getppid); }); });
    if (!counts || counts->empty() || Sum(counts->back().calls) != 1)
        return "processes cannot be traced";
    return "";
}

} // namespace

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // rows are forked
    setenv("PATH", "/usr/bin:/bin", 1);
    if (const std::string reason = Objection(); !reason.empty()) {
        std::printf("not counted: %s\n", reason.c_str());
        return 77;
    }
    const auto wanted = [&](const char* operation) {
        return argc < 2 || std::any_of(argv + 1, argv + argc, [&](const char* word) {
                   return std::strstr(operation, word) != nullptr;
               });
    };
    std::string folder = (fs::temp_directory_path() / "plinth-XXXXXX").string();
    mkdtemp(folder.data());
    fs::current_path(folder);
    bool good = true;
    if (argc < 2)
        std::fputs(head, stdout);
    for (const costs::Family* const family : families) {
        if (argc < 2)
            std::printf("\n## %s\n\n| Operation | System calls | Allocations | Which calls |\n"
                        "|---|---|---|---|\n",
                        family->name);
        for (const costs::Row& row : family->rows)
            good = (!wanted(row.operation) || PrintRow(row, argc > 1)) && good;
    }
    fs::current_path("/");
    fs::remove_all(folder);
    return good ? 0 : 1;
}
