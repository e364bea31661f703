// SPDX-License-Identifier: MIT
#include "testing/hostlistener.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <regex>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support.h"

namespace {

constexpr std::chrono::milliseconds now{0};

TEST(HostPicture, ShowsWhateverIsLeftBehindUnlessItWasAnnounced) {
    hostpicture::Announce("SIGUSR1"); // its flags
    const support::TempFolder folder;
    const support::LocaleKept kept;
    std::signal(SIGUSR1, SIG_DFL);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    pid_t child = 0;
    std::atomic<bool> over{false};
    std::thread thread;
    sigset_t usr1;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    const mode_t mode = umask(022);
    // What to announce, all that is told, and how it is planted and taken back.
    const std::tuple<const char*, const char*, std::function<void(bool)>> plants[] = {
        {"descriptor", "descriptor .*: (pipe:.*) close-on-exec -> \\1 nonblocking close-on-exec",
         [&](bool on) { fcntl(ends[0], F_SETFL, on ? O_NONBLOCK : 0); }},
        {"descriptor", "descriptor .*: none -> pipe:.*",
         [&, copy = -1](bool on) mutable { on ? copy = dup(ends[0]) : close(copy); }},
        {"thread", "thread .*: none -> test_hostpictur",
         [&](bool on) {
             if (on)
                 thread = std::thread([&] {
                     while (!over)
                         std::this_thread::yield();
                 });
             else
                 over = true, thread.join();
         }},
        {"child", "child .*: none -> test_hostpictur",
         [&](bool on) {
             if (on && (child = fork()) == 0)
                 for (;;)
                     pause();
             if (!on)
                 kill(child, SIGKILL), waitpid(child, nullptr, 0);
         }},
        {"SIGUSR1", "SIGUSR1: default -> ignored",
         [](bool on) { std::signal(SIGUSR1, on ? SIG_IGN : SIG_DFL); }},
        {"SIGUSR1", "SIGUSR1: default -> handler 0x.*",
         [](bool on) { std::signal(SIGUSR1, on ? [](int) {} : SIG_DFL); }},
        {"blocked", "blocked SIGUSR1: none -> yes",
         [&](bool on) { pthread_sigmask(on ? SIG_BLOCK : SIG_UNBLOCK, &usr1, nullptr); }},
        {"working directory", "working directory: .* -> /proc",
         [&](bool on) { std::filesystem::current_path(on ? "/proc" : folder.path); }},
        {"umask", "umask: 0022 -> 0077", [](bool on) { umask(on ? 077 : 022); }},
        {"locale", "locale: .* -> .*C.UTF-8.*",
         [](bool on) { std::setlocale(LC_CTYPE, on ? "C.UTF-8" : "C"); }},
        {"locale of C++", "locale of C\\+\\+: C -> \\*",
         [](bool on) {
             const std::locale classic = std::locale::classic();
             std::locale::global(on ? std::locale(classic, new std::numpunct<char>) : classic);
         }},
        {"environment PLINTH_SET", "environment PLINTH_SET: none -> \"x=\"",
         [](bool on) { on ? setenv("PLINTH_SET", "x=", 1) : unsetenv("PLINTH_SET"); }},
    };
    std::setlocale(LC_ALL, "C");
    std::filesystem::current_path(folder.path);
    for (const auto& [subject, told, plant] : plants) {
        hostpicture::Watch watch;
        plant(true);
        const std::string differences = watch.Differences(now);
        EXPECT_TRUE(std::regex_match(differences, std::regex(std::string(told) + "\n")))
            << differences;
        watch.Announce(subject);
        EXPECT_EQ(watch.Differences(now), "");
        plant(false);
        EXPECT_EQ(hostpicture::Watch(watch).Differences(), "");
    }
    pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
    const hostpicture::Watch quiet;
    raise(SIGUSR1);
    EXPECT_EQ(quiet.Differences(now), "pending SIGUSR1: none -> yes\n");
    int taken = 0;
    EXPECT_EQ(sigwait(&usr1, &taken), 0);
    pthread_sigmask(SIG_UNBLOCK, &usr1, nullptr);
    umask(mode);
    close(ends[0]);
    close(ends[1]);
}

TEST(HostPicture, SaysWhereItCannotLook) {
    const hostpicture::Watch watch;
    const support::DescriptorLimit none(0);
    EXPECT_EQ(watch.Differences(now), "descriptor: cannot be looked at: Too many open files\n"
                                      "thread: cannot be looked at: Too many open files\n"
                                      "umask: cannot be looked at: Too many open files\n");
}

TEST(HostPicture, MakesACaseFailThatHasLeftSomething) {
    std::unique_ptr<hostpicture::Watch>& current = hostpicture::Listener::Current();
    std::unique_ptr<hostpicture::Watch> own = std::move(current);
    const testing::TestInfo& info = *testing::UnitTest::GetInstance()->current_test_info();
    hostpicture::Listener listener;
    listener.OnTestStart(info);
    setenv("PLINTH_SET", "x", 1);
    EXPECT_NONFATAL_FAILURE(listener.OnTestEnd(info), "environment PLINTH_SET: none -> \"x\"");
    unsetenv("PLINTH_SET");
    current = std::move(own);
}

} // namespace
