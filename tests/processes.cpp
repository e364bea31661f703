// SPDX-License-Identifier: MIT
#include "execproc.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/piped.h"
#include "tests/tasks.h"

namespace {

class Processes : public tasks::Weather {};

INSTANTIATE_TEST_SUITE_P(Weather, Processes, testing::Bool(), tasks::NameOf);

TEST(CommandLine, IsSplitLikeAShellDoesWithoutExpandingAnything) {
    const std::pair<const char*, const char*> rows[] = {
        {"a  b\tc\nd ", "<a><b><c><d>"},
        {"'a  b' \"c  d\" e\\ f", "<a  b><c  d><e f>"},
        {"x'y'\"z\" '' \"\"", "<xyz><><>"},
        {R"('\"$' "\"\\\$\`\n'" \'\")", R"(<\"$><"\$`\n'><'">)"},
        {"$HOME * ~ ; | > & # \\", "<$HOME><*><~><;><|><>><&><#><\\>"},
        {"a\\\nb \"\\\n\" \\\n c '\\\n'\\\n", "<ab><><c><\\\n>"},
        {"'unclosed", "errInvalid"},
        {"\"unclosed\\\"", "errInvalid"},
    };
    for (const auto& [line, words] : rows)
        EXPECT_EQ(OutputOf(std::string("printf <%s> ") + line), words) << line;
    for (const char* const nothing : {"", " \t", "''", "\"\" true"})
        EXPECT_EQ(OutputOf(nothing), "errInvalid") << nothing;
}

TEST_P(Processes, AreFollowedFromTheirStartToTheirEnd) {
    errno = EDOM;
    std::unique_ptr<zelEvent> exit;
    {
        Piped child("sh -c 'read line; echo $line; echo oops >&2; exit 7'");
        ASSERT_EQ(child.status, errOK);
        exit.reset(child.process.GetExitEvent());
        EXPECT_EQ(ptkExecProcessEvent::cast(exit.get()), exit.get());
        const std::unique_ptr<zelEvent> output(child.out->GetReadEvent());
        EXPECT_EQ(ptkExecProcessEvent::cast(output.get()), nullptr);
        EXPECT_EQ(zelIPipeEvent::cast(exit.get()), nullptr);
        zelEvent* const both[] = {exit.get(), output.get()};
        EXPECT_EQ(zelEvent::WaitAny(both, 2, 0), -1);
        const pmExitStatus& record = child.process.GetExitCode();
        EXPECT_TRUE(!record.IsAlive() && record.GetExitCode() == errOK && record.ExitCode() == -1);
        EXPECT_TRUE(child.process.IsAppAlive());

        *child.in << "what was read" << std::endl;
        EXPECT_TRUE(output->Wait(-1));
        EXPECT_EQ(child.Output(), "what was read\n");
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(*child.err), {}), "oops\n");
        EXPECT_TRUE(exit->Wait(-1));
        EXPECT_FALSE(child.process.IsAppAlive());
        EXPECT_EQ(child.process.GetExitCode().ExitCode(), 7);
        EXPECT_FALSE(child.process.IsAppAlive()) << "answered from the record";
        EXPECT_EQ(child.process.WaitForProcess(), 7);
        EXPECT_EQ(errno, EDOM) << "what succeeds leaves the last error alone";
        EXPECT_FALSE(child.process.Interrupt() || child.process.Kill() || HasChildren());
        EXPECT_EQ(record.GetExitCode(), errNoProcess);
    }
    EXPECT_TRUE(exit->IsSignaled()) << "the event outlives the record";
}

TEST_P(Processes, EndBySignalOrAreForgotten) {
    for (const bool kill : {true, false}) {
        Piped child("cat");
        errno = EDOM;
        EXPECT_TRUE(kill ? child.process.Kill() : child.process.Interrupt());
        EXPECT_EQ(child.process.WaitForProcess(), 128 + (kill ? SIGKILL : SIGINT));
        EXPECT_EQ(errno, EDOM);
        *child.in << "too late" << std::flush;
        EXPECT_TRUE(child.in->bad()) << "and this process lives";
    }
    { const Piped forgotten("cat"); }
    for (ExecProcess next("true", 0); HasChildren(); next.WaitForProcess())
        EXPECT_TRUE(next.Start()) << "a later start collects the forgotten child";
    ExecProcess unheard("sh -c 'read x; exit 5'", 6);
    EXPECT_EXIT( // where a leak is no fault
        _exit(OpenPipeWithChildProc(nullptr, nullptr, nullptr, &unheard) != errOK ||
              unheard.WaitForProcess() != 5),
        testing::ExitedWithCode(0), "");
}

TEST_P(Processes, GetTheStreamsThatTheFlagsNameAndAGroupOrASession) {
    const support::TempFolder folder;
    const std::string base = folder.path.string() + "/";
    std::fstream both(base + "both", std::ios::in | std::ios::out | std::ios::trunc);
    std::ofstream out(base + "out");
    std::ifstream in(base + "out");
    const std::string command = "sh -c 'exec 3<&0 4>&1 5>&2 7>" + base +
                                "told; cd /proc/$$/fd; readlink 3 4 5 >&7;"
                                " cut -d\" \" -f1,5,6 ../stat >&7'";
    for (unsigned int flags = 0; flags < 16; ++flags) {
        const bool shared = flags < 8;
        ExecProcess process(command.c_str(), flags);
        EXPECT_EQ(flags & 7, process.IsCinToAssign() + 2u * process.IsCoutToAssign() +
                                 4u * process.IsCerrToAssign());
        process.AssignCin(shared ? iAssignableStream(in) : iAssignableStream(both));
        process.AssignCout(shared ? oAssignableStream(out) : oAssignableStream(both));
        process.AssignCerr(shared ? oAssignableStream(both) : oAssignableStream(out));
        EXPECT_TRUE(process.Start(shared));
        EXPECT_EQ(process.WaitForProcess(), 0);
        std::ifstream told(base + "told");
        for (unsigned int i = 0; i < 3; ++i) {
            std::string link;
            std::getline(told, link);
            const auto own = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(i));
            EXPECT_EQ(link, (flags >> i & 1) == 0 ? own.string()
                            : shared == (i == 2)  ? base + "both"
                                                  : base + "out");
        }
        pid_t id = 0, group = 0, session = 0;
        told >> id >> group >> session;
        EXPECT_EQ(group, shared ? getpgrp() : id);
        EXPECT_EQ(session, shared ? getsid(0) : id);
    }
}

TEST(Process, InheritsThreeStreamsAndNothingElse) {
    for (const int number : {7, 63, 64, 500})
        dup2(0, number);
    sigset_t all, before, after;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    for (const int signal : {SIGHUP, SIGINT, SIGPIPE, SIGUSR1})
        ::signal(signal, SIG_IGN);
    EXPECT_EQ(OutputOf("ls /proc/self/fd"), "0\n1\n2\n3\n") << "3 is that of ls itself";
    EXPECT_EQ(OutputOf("grep -hE 'Sig(Blk|Ign)' /proc/self/status"),
              "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000001\n");
    pthread_sigmask(SIG_SETMASK, &before, &after);
    EXPECT_TRUE(sigismember(&after, SIGINT));
    for (const int signal : {SIGHUP, SIGINT, SIGPIPE, SIGUSR1})
        EXPECT_EQ(::signal(signal, SIG_DFL), SIG_IGN);
    for (const int number : {7, 63, 64, 500})
        close(number);

    // A host without standard streams: the pipes get their numbers, in any order.
    for (unsigned int closed = 1; closed < 8; ++closed) {
        int kept[3];
        for (int i = 0; i < 3; ++i) {
            kept[i] = fcntl(i, F_DUPFD_CLOEXEC, 600);
            if ((closed >> i & 1) != 0)
                close(i);
        }
        const std::string output = OutputOf("sh -c 'read x; echo ${x}out; echo err >&2'");
        for (int i = 0; i < 3; ++i)
            EXPECT_TRUE(dup2(kept[i], i) == i && close(kept[i]) == 0);
        EXPECT_EQ(output, "out\n") << closed;
    }
}

TEST_P(Processes, ThatCannotStartLeaveAReasonAndNothingElse) {
    const support::TempFolder folder;
    const std::string base = folder.path.string();
    const auto file = [&](const char* name, const char* text, mode_t mode) {
        std::ofstream(folder.path / name) << text;
        chmod((folder.path / name).c_str(), mode);
        return base + "/" + name;
    };
    const std::pair<std::string, errstatus> rows[] = {
        {base + "/missing", errNotFound},
        {"no-such-program-on-any-path", errNotFound},
        {file("plain", "#!/bin/sh\n", 0644), errNoAccess},
        {base, errNoAccess},
        {file("lost", "#!/no/such/interpreter\n", 0755), errNotFound},
        {file("text", "exit 0\n", 0755), errSystem},
        {"true " + std::string(1u << 18, 'x'), errTooLarge},
    };
    for (int round = 0; round < 143; ++round) {
        for (const auto& [command, reason] : rows) {
            Piped child(command);
            EXPECT_EQ(errMapError(), reason) << command.substr(0, 80);
            EXPECT_EQ(child.status, errNone);
            EXPECT_TRUE(!child.in && !child.out && !child.err);
            EXPECT_TRUE(child.process.GetExitStatus().IsAlive()) << "the record is as it was";
        }
    }
    struct Unwilling : ExecProcess {
        using ExecProcess::ExecProcess;
        bool Start() override { throw std::bad_alloc(); }
    } unwilling("true", 7);
    EXPECT_THROW(OpenPipeWithChildProc(nullptr, nullptr, nullptr, &unwilling), std::bad_alloc);
}

TEST(Process, ThatFindsTooFewDescriptorsLeavesNoneOpen) {
    const long before = support::OpenDescriptors();
    for (int spare = 0; spare < 8; ++spare) {
        std::optional<support::DescriptorLimit> limit(spare);
        Piped child("sh -c 'read x; exit 5'");
        if (spare < 6) {
            limit.reset();
            EXPECT_EQ(child.status, errPipeFailed);
            EXPECT_TRUE(!child.in && !child.out && !child.err);
            EXPECT_EQ(support::OpenDescriptors(), before);
        } else {
            limit.emplace(0);
            const std::unique_ptr<zelEvent> exit(child.process.GetExitEvent());
            EXPECT_EQ(exit->GetDescriptor() >= 0, spare > 6);
            limit.reset();
            child.CloseInput();
            EXPECT_TRUE(exit->Wait(-1)) << "it asks again";
            EXPECT_EQ(child.process.WaitForProcess(), 5);
        }
    }
}

/// Another process with a number that was used before; 0 if it cannot be had.
pid_t ForkAs(pid_t wanted) {
    for (int i = 0; i < 100; ++i) {
        std::ofstream("/proc/sys/kernel/ns_last_pid") << wanted - 1;
        const pid_t id = fork();
        while (id == 0)
            pause();
        if (id == wanted)
            return id;
        kill(id, SIGTERM);
        waitpid(id, nullptr, 0);
    }
    return 0;
}

TEST(Process, IsNotTakenForAnotherThatHasItsNumberLater) {
    for (const bool hostCollects : {false, true}) {
        Piped child("sh -c 'echo $$'");
        pid_t id = 0;
        *child.out >> id;
        EXPECT_EQ(hostCollects ? waitpid(id, nullptr, 0) - id : child.process.WaitForProcess(), 0);
        const pid_t stranger = ForkAs(id);
        if (stranger == 0)
            GTEST_SKIP() << "the number of the next process cannot be chosen here";
        EXPECT_FALSE(child.process.Interrupt() || child.process.Kill());
        EXPECT_FALSE(child.process.IsAppAlive());
        EXPECT_EQ(child.process.WaitForProcess(), hostCollects ? -1 : 0);
        kill(stranger, SIGTERM);
        int status = 0;
        EXPECT_EQ(waitpid(stranger, &status, 0), stranger);
        EXPECT_EQ(WTERMSIG(status), SIGTERM) << "the others would have come first";
    }
}

/// What the process holds of the system when every child is collected.
std::array<std::size_t, 3> Holdings() {
    for (ExecProcess last("true", 0); HasChildren(); last.WaitForProcess())
        EXPECT_TRUE(last.Start());
    std::ifstream maps("/proc/self/maps");
    const std::string text(std::istreambuf_iterator<char>(maps), {});
    return {static_cast<std::size_t>(support::OpenDescriptors() + tasks::Threads()),
            static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')),
            mallinfo2().uordblks};
}

TEST(Process, LeavesNothingBehindTenThousandTimes) {
    std::array<std::size_t, 3> before{};
    int started = 0;
    const auto start = std::chrono::steady_clock::now(); // a slow host does fewer of them
    while (started < 10000 && std::chrono::steady_clock::now() - start < std::chrono::seconds(20)) {
        if (started == 40)
            before = Holdings();
        ExecProcess waited("true", 0), killed("sleep 9", 0), forgotten("true", 0), seen("true", 0);
        for (ExecProcess* const process : {&waited, &killed, &forgotten, &seen})
            started += process->Start();
        const std::unique_ptr<zelEvent> end(seen.GetExitEvent());
        EXPECT_TRUE(killed.Kill() && end->Wait(-1));
        EXPECT_EQ(killed.WaitForProcess() + waited.WaitForProcess(), 128 + SIGKILL);
        EXPECT_EQ(seen.GetExitCode().ExitCode(), 0);
    }
    const std::array<std::size_t, 3> after = Holdings();
    EXPECT_EQ(after[0], before[0]);
    EXPECT_LT(after[1], before[1] + 100) << "a sanitizer keeps some";
    EXPECT_LT(after[2], before[2] + 10000) << "and so does the allocator";
    RecordProperty("children", started);
}

TEST(Process, LeavesTheHostsHandlerAndChildrenAlone) {
    static std::atomic<int> signals{0};
    const auto handler = [](int) { ++signals; };
    ::signal(SIGCHLD, handler);
    const pid_t own = fork();
    if (own == 0)
        _exit(3);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(OutputOf("echo here"), "here\n");
    int status = 0;
    EXPECT_EQ(waitpid(own, &status, 0), own);
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_GT(signals, 0);
    EXPECT_EQ(::signal(SIGCHLD, SIG_DFL), static_cast<sighandler_t>(handler));
}

/// A host that leaves nothing to wait for: the end is seen all the same.
TEST_P(Processes, EndAlsoWhereTheHostCollectsEveryChild) {
    for (const bool ignored : {true, false}) {
        ::signal(SIGCHLD, ignored ? SIG_IGN : SIG_DFL); // and so it ends
        std::atomic<bool> over{false};
        std::thread rival([&] {
            for (; !over; std::this_thread::yield())
                waitpid(-1, nullptr, WNOHANG);
        });
        for (int i = 0; i < 100; ++i) {
            Piped child(i % 2 == 0 ? "true" : "cat");
            const std::unique_ptr<zelEvent> exit(child.process.GetExitEvent());
            child.CloseInput();
            EXPECT_TRUE(exit->Wait(10000));
            const long code = child.process.WaitForProcess();
            EXPECT_TRUE(code == -1 || (code == 0 && !ignored));
            EXPECT_FALSE(child.process.IsAppAlive() || child.process.Kill());
        }
        over = true;
        rival.join();
    }
}

TEST(Process, IsWatchedWithoutDescriptorsForProcesses) {
    const auto check = [] {
        support::FailCall(SYS_pidfd_open, ENOSYS); // an old kernel
        Piped child("cat");
        const std::unique_ptr<zelEvent> exit(child.process.GetExitEvent());
        return !exit->IsSignaled() && child.process.IsAppAlive() && child.process.Kill() &&
               exit->Wait(-1) && child.process.WaitForProcess() == 137 && !child.process.Kill();
    };
    EXPECT_EXIT(_exit(check() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(Process, StartsInAForkedCopyToo) {
    ExecProcess child("true", 0);
    EXPECT_TRUE(child.Start());
    std::atomic<bool> over{false};
    std::thread rival([&] {
        while (!over)
            child.IsAppAlive();
    });
    for (int i = 0; i < 20; ++i) {
        const pid_t copy = fork();
        ExecProcess own("true", 0);
        if (copy == 0)
            _exit(alarm(20) == 0 && own.Start() ? static_cast<int>(own.WaitForProcess()) : 1);
        int status = -1;
        EXPECT_EQ(waitpid(copy, &status, 0), copy);
        EXPECT_EQ(status, 0);
    }
    over = true;
    rival.join();
    child.WaitForProcess();
}

TEST(Process, StartsAsFastFromALargeProcess) {
    using Clock = std::chrono::steady_clock;
    const auto fastest = [](Clock::duration best) {
        for (int i = 0; i < 20; ++i) {
            ExecProcess process("true", 0);
            const Clock::time_point start = Clock::now();
            EXPECT_TRUE(process.Start());
            best = std::min(best, Clock::now() - start);
            process.WaitForProcess();
        }
        return best;
    };
    const Clock::duration small = fastest(Clock::duration::max());
    prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0); // many small pages
    const std::string memory(256u << 20, 'x');
    Clock::duration large = Clock::duration::max();
    for (int round = 0; round < 20 && large >= 2 * small; ++round)
        large = fastest(large); // the host may be busy: a copy of the tables is slow every time
    EXPECT_LT(large.count(), 2 * small.count());
}

TEST_P(Processes, StartFromManyThreadsWithoutHoldingEachOthersPipes) {
    std::vector<std::thread> threads(GetParam() ? 3 : 16);
    std::atomic<std::size_t> right{0};
    for (std::thread& thread : threads)
        thread = std::thread([&] {
            for (int j = 0; j < 50; ++j) {
                Piped child("cat");
                child.CloseInput();
                if (child.status == errOK && child.process.WaitForProcess() == 0)
                    ++right;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(right, threads.size() * 50);
}

/// A pipe end is ready; what that means is the end's business.
class Ready : public zelPipeEvent {
public:
    using zelPipeEvent::zelPipeEvent;
    int GetKind() override { return 0; }
    void* GetInfo() override { return this; }
};

TEST_P(Processes, FillTheirPipesInAnyOrderAgainstOneThread) {
    Piped child("sh -c 'head -c 1048576 /dev/zero >&2; head -c 1048576 /dev/zero; wc -c >&2'");
    ASSERT_EQ(child.status, errOK);
    Ready in(child.in->rdbuf()->pipe().fd()), out(child.out->rdbuf()->pipe().fd()),
        err(child.err->rdbuf()->pipe().fd());
    zelEvent* events[] = {&in, &out, &err};
    std::string texts[3];
    for (int sent = 0; events[0] || events[1] || events[2];) {
        const int fired = zelEvent::WaitAny(events, 3, -1);
        ASSERT_GE(fired, 0);
        if (fired == 0) {
            *child.in << std::string(4096, 'x') << std::flush;
            if (++sent == 256) {
                child.CloseInput();
                events[0] = nullptr;
            }
            continue;
        }
        char bytes[65536];
        iPipeStream* const stream = fired == 1 ? child.out : child.err;
        texts[fired].append(bytes, static_cast<std::size_t>(stream->readsome(bytes, 65536)));
        if (stream->eof())
            events[fired] = nullptr;
    }
    EXPECT_EQ(texts[1], std::string(1048576, '\0'));
    EXPECT_EQ(texts[2], std::string(1048576, '\0') + "1048576\n");
    EXPECT_EQ(child.process.WaitForProcess(), 0);
}

} // namespace
