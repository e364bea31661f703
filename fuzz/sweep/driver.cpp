// SPDX-License-Identifier: MIT
//
// usage: sweep [FAMILY [SCENARIO]], or sweep --complete LIST-OF-EXPORTS
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

#include "budget.h"
#include "complete.h"
#include "errors.h"
#include "outside/win32/threads.h"
#include "posix/faultplan.h"
#include "sweep.h"
#include "testing/hostpicture.h"

namespace {

using sys::Fault;
using Clock = std::chrono::steady_clock;

/// What happens in a run: the fault of a call, or an allocation fails if there is a number of one.
struct Strike {
    Fault fault;
    long allocation = 0;
    bool forGood = false;
};

// The run that goes on.
Strike strike;
unsigned long callsBefore; // while the plan was armed before
long budgetLeft;
int depth; // of Armed
const char* hit;

std::FILE* report; // the library's own lines go nowhere
char title[400];   // of the run, for a signal handler as well
long failures, runs;

void Describe(const char* scenario) {
    const Fault& fault = strike.fault;
    if (strike.allocation != 0)
        std::snprintf(title, sizeof title, "%s: allocation %ld fails%s", scenario,
                      strike.allocation, strike.forGood ? " and all behind it" : "");
    else if (fault.nth == 0)
        std::snprintf(title, sizeof title, "%s: untouched", scenario);
    else
        std::snprintf(title, sizeof title, "%s: %s %lu: %s", scenario,
                      fault.name != nullptr ? fault.name : "call", fault.nth,
                      fault.error == Fault::oneByte       ? "at most one byte"
                      : fault.error == Fault::nothingToDo ? "nothing to do"
                                                          : strerrorname_np(fault.error));
}

void Fail(const char* format, ...) {
    if (++failures > 100)
        return;
    std::fprintf(report, "%s: ", title);
    va_list words;
    va_start(words, format);
    std::vfprintf(report, format, words);
    va_end(words);
    std::fprintf(report, "\n");
}

void OnFatalSignal(int signal) {
    const char* const how = signal == SIGALRM ? ": it hangs\n" : ": it crashes\n";
    [[maybe_unused]] ssize_t out = write(fileno(report), title, std::strlen(title));
    out = write(fileno(report), how, std::strlen(how));
    _exit(1);
}

void RunBare(const sweep::Scenario& scenario) {
    Describe(scenario.name);
    callsBefore = 0;
    budgetLeft = strike.allocation;
    depth = 0;
    hit = nullptr;
    ++runs;
    alarm(30);
    try {
        scenario.run();
    } catch (const std::exception& thrown) {
        Fail("throws %s", thrown.what());
    }
    alarm(0);
}

/// Runs the scenario once. Whether the heap has grown.
bool RunOnce(const sweep::Scenario& scenario) {
    hostpicture::Watch watch;
    watch.Announce(hostpicture::NameOf(zelTerminateSignal())); // taken by the first kill
    const long blocks = budget::LiveBlocks();
    RunBare(scenario);
    // A thread or a child that ends may take a moment.
    for (const auto limit = Clock::now() + std::chrono::seconds(1);; usleep(500)) {
        const long grown = budget::LiveBlocks() - blocks;
        const std::string more = watch.Differences(std::chrono::milliseconds(0));
        if (more.empty() && grown <= 0)
            return false;
        if (Clock::now() < limit)
            continue;
        if (!more.empty())
            Fail("leaves %s", more.c_str());
        return grown > 0;
    }
}

/// Whether there was such a call, or allocation.
bool Run(const sweep::Scenario& scenario, const Strike& what) {
    strike = what;
    // What the C library makes for good, it makes once.
    bool grows = true;
    for (int i = 0; grows && i < 3; ++i)
        grows = RunOnce(scenario);
    if (grows)
        Fail("leaves heap blocks");
    return hit != nullptr;
}

const sweep::Failing* ErrorsOf(std::string_view call) {
    const auto found = std::find_if(std::begin(sweep::failing), std::end(sweep::failing),
                                    [&](const auto& one) { return one.call == call; });
    return found != std::end(sweep::failing) ? &*found : nullptr;
}

void Sweep(const sweep::Scenario& scenario) {
    const long before = failures;
    Run(scenario, {}), Run(scenario, {});
    if (failures != before)
        return;
    // Each call in turn, of whatever name: a transfer of one byte, all else as ever.
    std::set<std::string_view> calls;
    for (unsigned long n = 1; Run(scenario, {{nullptr, n, Fault::oneByte}}); ++n)
        calls.insert(hit);
    for (const std::string_view call : calls) {
        const sweep::Failing* const errors = ErrorsOf(call);
        if (errors == nullptr) {
            Fail("nothing is known of %s", call.data());
            continue;
        }
        bool more = !errors->errors.empty();
        for (unsigned long n = 1; more; ++n)
            for (const int error : errors->errors)
                more = more && Run(scenario, {{call.data(), n, error}});
    }
    for (const bool forGood : {false, true})
        for (long n = 1; Run(scenario, {{}, n, forGood}); ++n)
            continue;
}

const sweep::Family* const families[] = {
    &sweep::files,   &sweep::memory, &sweep::pipes,   &sweep::processes,
    &sweep::sockets, &sweep::text,   &sweep::threads,
};

} // namespace

namespace sweep {

void Expect(bool holds, const char* what, int line) {
    if (!holds)
        Fail("not so: %s (line %d)", what, line);
}

bool Hit() {
    if (hit == nullptr && depth > 0 && strike.fault.nth != 0)
        hit = sys::PlannedCall();
    return hit != nullptr;
}

bool HitIn(const char* call) {
    return Hit() && std::string_view(hit) == call;
}

bool MemoryFails() {
    return strike.allocation != 0 || strike.fault.error == ENOMEM;
}

bool MustWork() {
    return !Hit() || (strike.allocation == 0 &&
                      (strike.fault.error == EINTR || strike.fault.error == Fault::oneByte));
}

Armed::Armed() {
    if (depth++ != 0)
        return;
    if (strike.allocation != 0) {
        if (budgetLeft > 0 || strike.forGood)
            budget::Set(budgetLeft, strike.forGood);
    } else if (strike.fault.nth > callsBefore) {
        Fault rest = strike.fault;
        rest.nth -= callsBefore;
        sys::PlanFault(rest);
    }
}

Armed::~Armed() {
    if (--depth != 0)
        return;
    if (strike.allocation != 0) {
        if (budgetLeft > 0 || strike.forGood)
            budgetLeft = budget::Stop();
        if (budgetLeft <= 0)
            hit = "allocation";
    } else if (strike.fault.nth > callsBefore) {
        callsBefore += sys::PlannedCalls();
        if (sys::PlannedCall() != nullptr)
            hit = sys::PlannedCall();
        sys::PlanFault({});
    }
}

Folder::Folder() : former(std::filesystem::current_path()) {
    std::string name = std::filesystem::temp_directory_path() / "plinth-sweep-XXXXXX";
    path = mkdtemp(name.data());
    std::filesystem::current_path(path);
}

Folder::~Folder() {
    std::filesystem::current_path(former);
    std::filesystem::remove_all(path);
}

void Folder::Put(const char* path, const std::string& contents) {
    std::ofstream(path, std::ios::binary) << contents;
}

std::string Folder::Get(const char* path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        return "(none)";
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace sweep

int main(int count, char** words) {
    report = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 100), "w");
    static char room[1 << 16];
    std::setvbuf(report, room, _IOLBF, sizeof room);
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO})
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), fd);
    for (const int signal : {SIGALRM, SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGPIPE})
        std::signal(signal, OnFatalSignal);
    sys::SetCripples(0);

    if (count == 3 && std::string_view(words[1]) == "--complete")
        return sweep::Uncovered(families, words[2], report);
    const std::string_view wanted = count > 1 ? words[1] : "", only = count > 2 ? words[2] : "";
    for (const sweep::Family* const family : families) {
        if (wanted != "" && wanted != family->name)
            continue;
        const auto start = Clock::now();
        runs = 0;
        long scenarios = 0;
        for (const sweep::Scenario& scenario : family->scenarios)
            if (only == "" || only == scenario.name) {
                const long before = runs;
                Sweep(scenario);
                if (family->hasProcesses) {
                    sys::SetCripples(sys::NoPidfd);
                    Sweep(scenario);
                    sys::SetCripples(0);
                }
                std::fprintf(report, "%8ld  %s\n", runs - before, scenario.name);
                ++scenarios;
            }
        const std::chrono::duration<double> took = Clock::now() - start;
        std::fprintf(report, "%s: %ld scenarios, %ld runs, %.1f s, %ld failures\n", family->name,
                     scenarios, runs, took.count(), failures);
    }
    return runs != 0 && failures == 0 ? 0 : 1;
}
