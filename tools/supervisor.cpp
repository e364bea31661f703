// SPDX-License-Identifier: MIT
#include "supervisor.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <utility>

#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <execproc.h>

#include "../examples/terminal.h"
#include "outside/varnholt/process.h"
#include "outside/win32/handles.h"

namespace tools {

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr auto patience = 500ms;     // with pipes that stay open, before they are talked about
constexpr auto betweenKills = 100ms; // a process may make others while it is being ended
constexpr auto afterKill = 2s;       // for pipes that somebody out of reach holds
constexpr auto betweenShows = 100ms;
constexpr int betweenLooks = 20; // milliseconds
constexpr const char* const streamNames[] = {"input", "output", "errors"};

int DescriptorOf(std::ofstream& file) {
    return zelDescriptorOfHandle(oAssignableStream(file).GetCtrlHandle());
}

/// The signals that end a program, but for those that whoever started this one has it ignore.
sigset_t Ending() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction now {};
        if (sigaction(signal, nullptr, &now) == 0 && now.sa_handler != SIG_IGN)
            sigaddset(&set, signal);
    }
    return set;
}

} // namespace

const int Fires::kind = zelEvent::AllocEventKind();

Outlet::Outlet(iPipeStream* pipe, std::ostream& stream, int descriptor)
    : road(pipe, stream), to(stream),
      room(new zelSelectEvent(static_cast<unsigned int>(descriptor), zelBaseEvent::Writable)) {
    std::error_code error;
    regular = fs::is_regular_file("/proc/self/fd/" + std::to_string(descriptor), error);
}

zelEvent* Outlet::Event() {
    return full && road.Event() != nullptr ? &room : road.Event();
}

void Outlet::Move() {
    constexpr std::streamsize sureToFit = 4096; // where there is room at all
    if (regular) {
        road.Move();
        return;
    }
    if (!full && !room.IsSignaled()) {
        full = true;
        return;
    }
    road.Move(sureToFit);
    to.flush();
    full = road.Waiting();
}

Supervisor::Supervisor(const Order& what) : order(what), strangers(Descendants({})) {
    std::signal(SIGPIPE, SIG_IGN);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

Supervisor::~Supervisor() {
    if (process != nullptr)
        Process_Free(process);
    close(signals);
}

void Supervisor::TakeSignals() {
    sigset_t set = Ending();
    sigaddset(&set, SIGCHLD);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    signals = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    signalled = std::make_unique<Fires>(
        new zelSelectEvent(static_cast<unsigned int>(signals), zelBaseEvent::Readable));
}

Record Supervisor::Run() {
    if (!OpenFiles()) // which may wait, so that signals are to be heeded as ever
        return record;
    TakeSignals();
    start = Clock::now();
    if (!Launch())
        return record;
    if (order.limit)
        limitAt = start + std::chrono::duration_cast<Clock::duration>(*order.limit);
    if (IsTerminal(STDERR_FILENO) && !order.output.empty() && !order.errors.empty())
        showAt = start + betweenShows;
    Loop();
    if (showAt)
        std::cerr << "\r\033[K" << std::flush;
    record.ended = !ended;
    record.time = Clock::now() - start;
    if (in)
        record.in = in->Bytes();
    record.out = out->Bytes();
    record.errors = errors->Bytes();
    outputFile.flush();
    errorFile.flush();
    if (record.failedFile.empty() && (!outputFile || !errorFile))
        record.failedFile = !outputFile ? order.output : order.errors;
    return record;
}

bool Supervisor::OpenFiles() {
    const auto open = [this](auto& file, const std::string& path) {
        if (!path.empty() && record.failedFile.empty()) {
            file.open(path, std::ios::binary);
            if (!file)
                record.failedFile = path;
        }
    };
    open(inputFile, order.input);
    open(outputFile, order.output);
    std::error_code error;
    if (order.errors.empty() || order.output.empty() ||
        !fs::equivalent(order.output, order.errors, error))
        open(errorFile, order.errors);
    return record.failedFile.empty();
}

bool Supervisor::Launch() {
    // The ends of the command, which this process must not keep.
    std::unique_ptr<iPipeStream, PipeDeleter> itsInput;
    std::unique_ptr<oPipeStream, PipeDeleter> itsOutput, itsErrors;
    void* handles[3] = {zelHandleOfDescriptor(-1), nullptr, nullptr};
    const auto note = [&](int stream, void* ours, void* its) {
        handles[stream] = its;
        pipes[stream] = TargetOf(zelDescriptorOfHandle(ours));
    };
    const auto collect = [&](int stream, auto& its, std::ostream& to, int descriptor) {
        oPipeStream* write = nullptr;
        iPipeStream* read = nullptr;
        if (CreatePipeSt(&write, &read) != errOK)
            return std::unique_ptr<Outlet>();
        its.reset(write);
        note(stream, read->rdbuf()->pipe().fd(), write->rdbuf()->pipe().fd());
        return std::make_unique<Outlet>(read, to, descriptor);
    };
    const bool toFile = outputFile.is_open(), both = !order.errors.empty() && !errorFile.is_open();
    std::ostream& outputTo = toFile ? outputFile : std::cout;
    const int outputFd = toFile ? DescriptorOf(outputFile) : STDOUT_FILENO;
    out = collect(1, itsOutput, outputTo, outputFd);
    errors = both                  ? collect(2, itsErrors, outputTo, outputFd)
             : errorFile.is_open() ? collect(2, itsErrors, errorFile, DescriptorOf(errorFile))
                                   : collect(2, itsErrors, std::cerr, STDERR_FILENO);
    std::error_code error;
    if (!order.input.empty() && !fs::is_regular_file(order.input, error)) {
        // A pipe or a terminal could keep us waiting, so the command reads it for itself.
        handles[0] = iAssignableStream(inputFile).GetCtrlHandle();
    } else if (!order.input.empty()) {
        oPipeStream* write = nullptr;
        iPipeStream* read = nullptr;
        if (CreatePipeSt(&write, &read) == errOK) {
            itsInput.reset(read);
            note(0, write->rdbuf()->pipe().fd(), read->rdbuf()->pipe().fd());
            in = std::make_unique<Feed>(inputFile, write);
        }
    }
    if (!out || !errors || (!in && itsInput)) {
        record.launch = errPipeFailed;
        return false;
    }
    if (!Process_Launch(&process, &id, CommandLine(order.command).c_str(), nullptr, handles[0],
                        handles[1], handles[2], 1)) {
        record.launch = errMapError();
        return false;
    }
    ended = std::make_unique<Fires>(new zelPROCESSEvent(process));
    return true;
}

bool Supervisor::Moving() {
    return (in && in->Event() != nullptr) || out->Event() != nullptr || errors->Event() != nullptr;
}

/// Whether something is left that is to be ended.
bool Supervisor::Lingering() const {
    if (!killAt || gaveUp)
        return false;
    const std::vector<Process> left = Descendants(strangers);
    return !std::all_of(left.begin(), left.end(), [](const Process& below) { return below.ended; });
}

void Supervisor::Loop() {
    while (ended || Moving() || Lingering()) {
        // What comes first is looked at first, so the streams take turns.
        zelEvent* const roads[] = {in ? in->Event() : nullptr, out->Event(), errors->Event()};
        zelEvent* const events[] = {signalled.get(), ended.get(), roads[turn],
                                    roads[(turn + 1) % 3], roads[(turn + 2) % 3]};
        // Not every end is told to this process, so what lingers is looked at now and then.
        const bool looking = !ended && !Moving();
        const int fired =
            zelEvent::WaitAny(events, 5, looking ? std::min(Patience(), betweenLooks) : Patience());
        if (fired == 0)
            OnSignals();
        else if (fired == 1)
            OnEnd();
        else if (fired > 1)
            MoveOne((turn + fired - 2) % 3);
        OnTime();
        if (gaveUp) {
            // What has been taken in still goes where it should.
            if (in)
                in->Close();
            for (Outlet* outlet : {out.get(), errors.get()})
                if (!outlet->IsFull())
                    outlet->Close();
            if (!Moving())
                break; // also if the command does not end
        }
    }
}

void Supervisor::MoveOne(int index) {
    turn = (index + 1) % 3;
    if (index == 0) {
        in->Move();
        if (inputFile.bad() && record.failedFile.empty()) {
            record.failedFile = order.input;
            End(SIGKILL);
        }
        return;
    }
    Outlet& outlet = index == 1 ? *out : *errors;
    const bool toErrors = index == 2 && (errorFile.is_open() || order.errors.empty());
    const std::ostream& file = toErrors ? errorFile : outputFile;
    const std::ostream& own = index == 1 ? std::cout : std::cerr;
    outlet.Move();
    if (!file && record.failedFile.empty()) {
        record.failedFile = toErrors ? order.errors : order.output;
        End(SIGKILL);
    }
    if (!file || !own) // nobody reads: the command is to find that out for itself
        outlet.Close();
}

void Supervisor::OnSignals() {
    signalfd_siginfo info{};
    while (read(signals, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        // What comes from the terminal has gone to the command as well, which may live on with it.
        // Once that has ended, nobody else may be there to heed it.
        if (info.ssi_signo == SIGCHLD || (info.ssi_code > 0 && ended))
            continue;
        record.stoppedBy = static_cast<int>(info.ssi_signo);
        End(record.stoppedBy);
    }
    Reap();
}

void Supervisor::OnEnd() {
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        info.si_pid != 0 && info.si_code != CLD_EXITED)
        record.signal = info.si_status;
    long code = 0;
    Process_Wait(process, &code, true, true);
    record.code = static_cast<int>(code);
    ended.reset();
    nameAt = Clock::now() + patience;
    Reap();
}

void Supervisor::OnTime() {
    const Clock::time_point now = Clock::now();
    if (limitAt && now >= *limitAt) {
        limitAt.reset();
        record.limitReached = true;
        End(SIGINT);
    }
    if (killAt && now >= *killAt)
        End(SIGKILL);
    if (giveUpAt && now >= *giveUpAt) {
        giveUpAt.reset();
        gaveUp = true;
    }
    if (nameAt && now >= *nameAt) {
        nameAt.reset();
        NameHolders();
    }
    if (showAt && now >= *showAt) {
        showAt = now + betweenShows;
        ShowProgress();
    }
}

void Supervisor::End(int signal) {
    const Clock::time_point now = Clock::now();
    const bool again = killAt.has_value();
    limitAt.reset();
    bool told = !ended;
    for (const Process& below : Descendants(strangers)) {
        if (!below.ended)
            Send(below, signal);
        told = told || below.id == static_cast<int>(id);
    }
    if (!told) // without /proc the command alone is known
        kill(static_cast<pid_t>(id), signal);
    if (signal == SIGKILL) {
        killAt = now + betweenKills;
        if (!giveUpAt && !gaveUp)
            giveUpAt = now + afterKill;
    } else if (!again) {
        killAt = now + std::chrono::duration_cast<Clock::duration>(order.grace);
    }
}

/// Collects what has been left to this process, but for the command itself.
void Supervisor::Reap() const {
    siginfo_t info{};
    while (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0 &&
           (!ended || static_cast<unsigned long>(info.si_pid) != id)) {
        waitpid(info.si_pid, nullptr, 0);
        info.si_pid = 0;
    }
}

int Supervisor::Patience() const {
    Time next;
    for (const Time& time : {limitAt, killAt, nameAt, giveUpAt, showAt})
        if (time && (!next || *time < *next))
            next = time;
    if (!next)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 1000000000));
}

void Supervisor::NameHolders() const {
    const zelEvent* const events[] = {in ? in->Event() : nullptr, out->Event(), errors->Event()};
    std::string open;
    bool several = events[2] != nullptr; // the errors are
    for (int stream = 0; stream < 3; ++stream)
        if (events[stream] != nullptr) {
            several = several || !open.empty();
            open += std::string(open.empty() ? " " : " and ") + streamNames[stream];
        }
    if (open.empty())
        return;
    std::string tree;
    for (const Process& below : Descendants(strangers)) {
        if (below.ended)
            continue;
        const std::vector<std::string> targets = OpenBy(below);
        tree += std::string(4 + 2 * static_cast<std::size_t>(below.depth), ' ') +
                std::to_string(below.id) + ' ' + CommandOf(below);
        std::string held;
        for (int stream = 0; stream < 3; ++stream)
            if (events[stream] != nullptr &&
                std::find(targets.begin(), targets.end(), pipes[stream]) != targets.end())
                held += std::string(held.empty() ? "" : ", ") + streamNames[stream];
        tree += held.empty() ? "\n" : "  (holds " + held + ")\n";
    }
    std::cerr << (showAt ? "\r\033[K" : "") << "plinth-run: the command has ended, and its" << open
              << (several ? " stay open in" : " stays open in")
              << (tree.empty() ? " a process that cannot be seen\n" : ":\n" + tree) << std::flush;
}

void Supervisor::ShowProgress() {
    std::cerr << '\r' << (in ? std::to_string(in->Bytes()) + " in, " : "") << out->Bytes()
              << " out, " << errors->Bytes() << " of errors\033[K" << std::flush;
}

} // namespace tools
