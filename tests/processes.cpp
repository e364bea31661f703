// SPDX-License-Identifier: MIT
#include "execproc.h"

#include <algorithm>
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
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support.h"
#include "tests/tasks.h"

namespace {

/// A command with its streams on pipes.
struct Piped {
    explicit Piped(const std::string& command)
        : process(command.c_str(), 7), status(OpenPipeWithChildProc(&in, &out, &err, &process)) {}
    ~Piped() {
        CloseInput();
        if (out != nullptr)
            DeletePipe(out);
        if (err != nullptr)
            DeletePipe(err);
    }
    void CloseInput() {
        if (in != nullptr)
            DeletePipe(std::exchange(in, nullptr));
    }
    /// All that comes out, once the input is at its end.
    std::string Output() {
        CloseInput();
        return {std::istreambuf_iterator<char>(*out), {}};
    }
    ExecProcess process;
    oPipeStream* in = nullptr;
    iPipeStream* out = nullptr;
    iPipeStream* err = nullptr;
    errstatus status;
};

std::string OutputOf(const std::string& command) {
    Piped child(command);
    if (child.status != errOK)
        return errName(errMapError());
    std::string output = child.Output();
    child.process.WaitForProcess();
    return output;
}

bool HasChildren() {
    siginfo_t info;
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

TEST(CommandLine, IsSplitLikeAShellDoesWithoutExpandingAnything) {
    const std::pair<const char*, const char*> rows[] = {
        {"a  b\tc\nd ", "<a><b><c><d>"},
        {"'a  b' \"c  d\" e\\ f", "<a  b><c  d><e f>"},
        {"x'y'\"z\" '' \"\"", "<xyz><><>"},
        {R"('\"$' "\"\\\$\`\n'" \'\")", R"(<\"$><"\$`\n'><'">)"},
        {"$HOME * ~ ; | > & # \\", "<$HOME><*><~><;><|><>><&><#><\\>"},
        {"'unclosed", "errInvalid"},
        {"\"unclosed\\\"", "errInvalid"},
    };
    for (const auto& [line, words] : rows)
        EXPECT_EQ(OutputOf(std::string("printf <%s> ") + line), words) << line;
    for (const char* const nothing : {"", " \t", "''", "\"\" true"})
        EXPECT_EQ(OutputOf(nothing), "errInvalid") << nothing;
}

TEST(Process, IsFollowedFromItsStartToItsEnd) {
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
        EXPECT_FALSE(HasChildren());
        EXPECT_FALSE(child.process.IsAppAlive()) << "answered from the record";
        EXPECT_FALSE(child.process.Kill());
        EXPECT_EQ(record.GetExitCode(), errNoProcess);
        EXPECT_FALSE(child.process.Interrupt());
        EXPECT_EQ(child.process.WaitForProcess(), 7);
    }
    EXPECT_TRUE(exit->IsSignaled()) << "the event outlives the record";
}

TEST(Process, EndsBySignalOrIsForgotten) {
    for (const bool kill : {true, false}) {
        Piped child("cat");
        EXPECT_TRUE(kill ? child.process.Kill() : child.process.Interrupt());
        EXPECT_EQ(child.process.WaitForProcess(), 128 + (kill ? SIGKILL : SIGINT));
        *child.in << "too late" << std::flush;
        EXPECT_TRUE(child.in->bad()) << "and this process lives";
    }
    { const Piped forgotten("cat"); }
    for (ExecProcess next("true", 0); HasChildren(); next.WaitForProcess())
        EXPECT_TRUE(next.Start()) << "a later start collects the forgotten child";
}

TEST(Process, GetsAGroupOrASessionOfItsOwn) {
    for (const bool shared : {true, false}) {
        support::TempFolder folder;
        std::ofstream file(folder.path / "out");
        ExecProcess process("cut -d' ' -f1,5,6 /proc/self/stat", 2 | 4);
        process.AssignCout(oAssignableStream(file));
        EXPECT_TRUE(process.IsCoutToAssign() && process.IsCerrToAssign());
        EXPECT_FALSE(process.IsCinToAssign());
        EXPECT_TRUE(process.Start(shared));
        EXPECT_EQ(process.WaitForProcess(), 0);
        pid_t id = 0, group = 0, session = 0;
        std::ifstream(folder.path / "out") >> id >> group >> session;
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
    EXPECT_TRUE(sigismember(&after, SIGINT) && ::signal(SIGINT, SIG_DFL) == SIG_IGN);

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
            dup2(kept[i], i);
        EXPECT_EQ(output, "out\n") << closed;
    }
}

TEST(Process, ThatCannotStartLeavesAReasonAndNothingElse) {
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
    const long before = support::OpenDescriptors();
    for (int round = 0; round < 143; ++round) {
        for (const auto& [command, reason] : rows) {
            Piped child(command);
            EXPECT_EQ(errMapError(), reason) << command.substr(0, 80);
            EXPECT_EQ(child.status, errNone);
            EXPECT_TRUE(!child.in && !child.out && !child.err);
            EXPECT_TRUE(child.process.GetExitStatus().IsAlive()) << "the record is as it was";
        }
    }
    EXPECT_EQ(support::OpenDescriptors(), before);
    EXPECT_FALSE(HasChildren());
}

TEST(Process, ThatFindsTooFewDescriptorsLeavesNoneOpen) {
    const long before = support::OpenDescriptors();
    std::vector<int> free(9);
    std::generate(free.begin(), free.end(), [] { return dup(0); });
    std::for_each(free.begin(), free.end(), close);
    for (std::size_t spare = 0; spare < 8; ++spare) {
        std::optional<support::DescriptorLimit> limit(static_cast<rlim_t>(free[spare]));
        Piped child("sh -c 'read x; exit 5'");
        limit.reset();
        if (spare < 6) {
            EXPECT_EQ(child.status, errPipeFailed);
            EXPECT_TRUE(!child.in && !child.out && !child.err);
            EXPECT_EQ(support::OpenDescriptors(), before);
        } else {
            const std::unique_ptr<zelEvent> exit(child.process.GetExitEvent());
            child.CloseInput();
            EXPECT_TRUE(exit->Wait(-1));
            EXPECT_EQ(child.process.WaitForProcess(), 5);
        }
    }
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
TEST(Process, EndsAlsoWhereTheHostCollectsEveryChild) {
    for (const bool ignored : {true, false}) {
        ::signal(SIGCHLD, ignored ? SIG_IGN : SIG_DFL);
        std::atomic<bool> over{false};
        std::thread rival([&] {
            while (!over)
                if (ignored || waitpid(-1, nullptr, WNOHANG) <= 0)
                    std::this_thread::yield();
        });
        int lost = 0;
        for (int i = 0; i < 100; ++i) {
            Piped child(i % 2 == 0 ? "true" : "cat");
            const std::unique_ptr<zelEvent> exit(child.process.GetExitEvent());
            child.CloseInput();
            EXPECT_TRUE(exit->Wait(10000));
            const long code = child.process.WaitForProcess();
            EXPECT_TRUE(code == 0 || code == -1);
            lost += code == -1;
            EXPECT_FALSE(child.process.IsAppAlive() || child.process.Kill());
        }
        over = true;
        rival.join();
        EXPECT_TRUE(!ignored || lost == 100);
    }
}

TEST(Process, IsWatchedWithoutDescriptorsForProcesses) {
    EXPECT_EXIT(
        {
            support::FailCall(SYS_pidfd_open, ENOSYS); // an old kernel
            Piped child("cat");
            const std::unique_ptr<zelEvent> exit(child.process.GetExitEvent());
            bool right = !exit->IsSignaled() && child.process.IsAppAlive();
            right = right && child.process.Kill() && exit->Wait(-1);
            right = right && child.process.WaitForProcess() == 137 && !child.process.Kill();
            _exit(right ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
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
    const std::size_t size = 256u << 20;
    void* const block =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    madvise(block, size, MADV_NOHUGEPAGE);
    std::fill_n(static_cast<char*>(block), size, 'x');
    Clock::duration large = Clock::duration::max();
    for (int round = 0; round < 20 && large >= 2 * small; ++round)
        large = fastest(large); // the host may be busy: a copy of the tables is slow every time
    EXPECT_LT(large.count(), 2 * small.count());
    munmap(block, size);
}

class Processes : public tasks::Weather {};

TEST_P(Processes, StartFromManyThreadsWithoutHoldingEachOthersPipes) {
    const long before = support::OpenDescriptors();
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
    EXPECT_TRUE(tasks::Eventually([&] { return support::OpenDescriptors() == before; }))
        << "the storm itself has a folder open now and then";
    EXPECT_FALSE(HasChildren());
}

/// A pipe end is ready; what that means is the end's business.
class Ready : public zelPipeEvent {
public:
    using zelPipeEvent::zelPipeEvent;
    int GetKind() override { return 0; }
    void* GetInfo() override { return this; }
};

TEST_P(Processes, FillTheirPipesInAnyOrderAgainstOneThread) {
    const std::size_t size = 1u << 20;
    Piped child("sh -c 'head -c 1048576 /dev/zero >&2; head -c 1048576 /dev/zero; wc -c >&2'");
    ASSERT_EQ(child.status, errOK);
    Ready in(child.in->rdbuf()->pipe().fd()), out(child.out->rdbuf()->pipe().fd()),
        err(child.err->rdbuf()->pipe().fd());
    const std::unique_ptr<zelEvent> exit(child.process.GetExitEvent());
    zelEvent* events[] = {&in, &out, &err, exit.get()};
    const std::string block(4096, 'x');
    std::string texts[2];
    for (std::size_t sent = 0; std::any_of(events, events + 4, [](zelEvent* e) { return e; });) {
        const int fired = zelEvent::WaitAny(events, 4, -1);
        ASSERT_GE(fired, 0);
        if (fired == 0) {
            sent += block.size();
            *child.in << block << std::flush;
            if (sent == size) {
                child.CloseInput();
                events[0] = nullptr;
            }
        } else if (fired == 3) {
            EXPECT_EQ(child.process.GetExitCode().ExitCode(), 0);
            events[3] = nullptr;
        } else {
            char bytes[65536];
            iPipeStream* const stream = fired == 1 ? child.out : child.err;
            const auto got = static_cast<std::size_t>(stream->readsome(bytes, sizeof bytes));
            texts[fired - 1].append(bytes, got);
            if (stream->eof())
                events[fired] = nullptr;
        }
    }
    EXPECT_EQ(texts[0], std::string(size, '\0'));
    EXPECT_EQ(texts[1], std::string(size, '\0') + "1048576\n");
}

INSTANTIATE_TEST_SUITE_P(Weather, Processes, testing::Bool(), tasks::NameOf);

} // namespace
