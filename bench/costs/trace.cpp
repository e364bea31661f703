// SPDX-License-Identifier: MIT
#include "trace.h"

#include <cstddef>
#include <set>
#include <string>

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/traced.h"

namespace {

using costs::Mark;

class Tracer {
public:
    explicit Tracer(pid_t traced) : process(traced), threads{traced}, begun{traced} {}

    /// Whether the process ends well.
    bool Run() {
        int status = 0;
        if (waitpid(process, &status, 0) != process || !WIFSTOPPED(status))
            return false;
        ptrace(PTRACE_SETOPTIONS, process, nullptr,
               PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_TRACEFORK |
                   PTRACE_O_TRACEVFORK | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL);
        Resume(process);
        for (pid_t task; (task = waitpid(-1, &status, __WALL)) > 0;) {
            if (WIFSTOPPED(status)) {
                OnStop(task, status);
                continue;
            }
            threads.erase(task);
            begun.erase(task);
            if (task == process)
                return WIFEXITED(status) && WEXITSTATUS(status) == 0;
            if (held && threads.size() == 1) {
                held = false;
                Resume(process);
            }
        }
        return false;
    }

    std::vector<costs::Taken> counts;

private:
    const pid_t process;
    std::set<pid_t> threads; ///< of the process
    std::set<pid_t> begun;   ///< tasks that have had the first stop of their lives
    bool counting = false, held = false;

    static void Resume(pid_t task, int signal = 0) {
        ptrace(PTRACE_SYSCALL, task, nullptr, signal);
    }

    void OnStop(pid_t task, int status) {
        const int signal = WSTOPSIG(status), event = status >> 16;
        if (signal == (SIGTRAP | 0x80))
            return OnCall(task);
        if (event == PTRACE_EVENT_EXEC) { // its own program is its own affair
            ptrace(PTRACE_DETACH, task, nullptr, 0);
            return;
        }
        if (event != 0) {
            unsigned long made = 0;
            ptrace(PTRACE_GETEVENTMSG, task, nullptr, &made);
            if (IsThread(static_cast<pid_t>(made)))
                threads.insert(static_cast<pid_t>(made));
        }
        // A signal goes where it was sent, but for the stop that each new task begins with.
        Resume(task, event != 0 || begun.insert(task).second ? 0 : signal);
    }

    void OnCall(pid_t task) {
        __ptrace_syscall_info info{};
        ptrace(PTRACE_GET_SYSCALL_INFO, task, sizeof info, &info);
        const long call = static_cast<long>(info.entry.nr);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
            return Resume(task);
        if (call != costs::markCall) {
            if (counting)
                ++(threads.contains(task) ? counts.back().calls : counts.back().childCalls)[call];
            return Resume(task);
        }
        switch (static_cast<Mark>(info.entry.args[0])) {
        case Mark::Begin:
            counting = true;
            counts.emplace_back();
            break;
        case Mark::Pause:
            counting = false;
            break;
        case Mark::Continue:
            counting = true;
            break;
        case Mark::End:
            counting = false;
            counts.back().allocations = static_cast<long>(info.entry.args[1]);
            break;
        case Mark::AwaitThreads:
            held = threads.size() > 1;
            break;
        }
        if (!held)
            Resume(task);
    }

    bool IsThread(pid_t task) const {
        const std::string folder = "/proc/" + std::to_string(process) + "/task/";
        return access((folder + std::to_string(task)).c_str(), F_OK) == 0;
    }
};

} // namespace

namespace costs {

std::optional<std::vector<Taken>> CountsOf(void (*work)()) {
    Tracer tracer(ForkTraced(work));
    if (!tracer.Run())
        return std::nullopt;
    return std::move(tracer.counts);
}

} // namespace costs
