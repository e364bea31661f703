// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <future>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "testing/hostlistener.h"
#include "tests/countnew.h"
#include "tests/loopback.h"
#include "tests/support.h"

#ifdef SYS_socketcall
// Here the C library may make these by one system call whose arguments no filter can see: now each
// is its own, also for the library.
int socket(int family, int type, int protocol) noexcept {
    return static_cast<int>(syscall(SYS_socket, family, type, protocol));
}
int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept {
    return static_cast<int>(syscall(SYS_setsockopt, fd, level, name, value, size));
}
int getsockname(int fd, sockaddr* address, socklen_t* size) noexcept {
    return static_cast<int>(syscall(SYS_getsockname, fd, address, size));
}
int listen(int fd, int backlog) noexcept {
    return static_cast<int>(syscall(SYS_listen, fd, backlog));
}
int accept4(int fd, sockaddr* address, socklen_t* size, int flags) {
    return static_cast<int>(syscall(SYS_accept4, fd, address, size, flags));
}
#endif

namespace {

using loopback::Pair;
using loopback::Server;
using loopback::Stream;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;
using namespace std::string_literals;

/// The number that the next descriptor of the process will have.
int NextDescriptor() {
    const int next = open("/dev/null", O_RDONLY);
    close(next);
    return next;
}

struct Unused : psockBlockingServer {
    bool Execute(psockStream*) override { return true; }
};

int Option(int socket, int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    return getsockopt(socket, level, name, &value, &size), value;
}

TEST(Servers, ANonBlockingServerServesWhatWaitsAndComesBack) {
    int served = 0;
    Server<psockNonBlockingServer> server([&](Stream) { return ++served == 3; });
    EXPECT_FALSE(server.IsConnectionReceived());
    for (const int afterwards : {2, 3}) { // the third ends the loop
        const Stream one = server.Client(), two = server.Client();
        EXPECT_TRUE(server.IsConnectionReceived());
        server.Run();
        EXPECT_EQ(served, afterwards);
        EXPECT_EQ(server.idle, 1);
        EXPECT_EQ(server.IsConnectionReceived(), afterwards == 3);
    }
}

TEST(Servers, AServiceServesUntilItIsToldToStop) {
    struct Paused : zelService {
        void DoPause() override { ++pauses; }
        int pauses = 0;
    };
    constexpr auto mark = [](int) {};
    signal(SIGUSR1, mark);
    for (const bool bySignal : {false, true}) {
        Paused service;
        for (const int taken : {SIGUSR1, SIGUSR1, SIGUSR2})
            EXPECT_TRUE(service.StopOnSignal(taken));
        for (const int refused : {0, 65, SIGKILL, SIGSEGV})
            EXPECT_FALSE(service.StopOnSignal(refused)) << refused;
        EXPECT_FALSE(zelService().StopOnSignal(SIGUSR1)) << "another has it";

        std::promise<void> served;
        const int msec = 5;
        Server<psockService> server([&](Stream) { return served.set_value(), false; }, service,
                                    msec);
        std::thread runs([&] { server.Run(); });
        const Stream client = server.Client();
        served.get_future().wait();
        EXPECT_FALSE(service.IsStopSignaled());
        bySignal ? static_cast<void>(kill(getpid(), SIGUSR1)) : service.RequestStop();
        runs.join();
        EXPECT_TRUE(service.IsStopSignaled());
        EXPECT_EQ(service.pauses, server.idle);
        EXPECT_FALSE(zelService().IsStopSignaled());
        signal(SIGUSR2, SIG_IGN);
    }
    EXPECT_EQ(signal(SIGUSR1, SIG_DFL), static_cast<sighandler_t>(mark)) << "not put back";
    EXPECT_EQ(signal(SIGUSR2, SIG_DFL), SIG_IGN) << "a later handler was replaced";
}

TEST(Servers, EveryAddressOfTheHostReachesThem) {
    char name[256] = "";
    gethostname(name, sizeof name);
    for (const char* host : {"localhost", "127.0.0.1", "::1", static_cast<const char*>(name)}) {
        SCOPED_TRACE(host);
        const Pair pair(host);
        if (!pair.client) {
            EXPECT_EQ(errMapError(), errNoAddress);
            std::printf("skipped: this host has no address for %s\n", host);
            continue;
        }
        char byte = 0;
        EXPECT_TRUE(pair.server->Write("a", 1, false) == 1);
        EXPECT_TRUE(pair.client->Read(&byte, 1, false) == 1 && byte == 'a');
        EXPECT_TRUE(pair.server->IsOnTheSameMachine() || host == name);
        for (const auto* stream : {&pair.client, &pair.server}) {
            const int socket = static_cast<int>((*stream)->getSock());
            EXPECT_EQ(Option(socket, IPPROTO_TCP, TCP_NODELAY), 1);
            EXPECT_EQ(fcntl(socket, F_GETFD), FD_CLOEXEC);
        }
    }
    const Pair unnamed(nullptr); // both loopback addresses
    EXPECT_EQ(Option(static_cast<int>(unnamed.client->getSock()), SOL_SOCKET, SO_DOMAIN), AF_INET);
    sockaddr_in6 peer;
    socklen_t size = sizeof peer;
    auto* address = reinterpret_cast<sockaddr*>(&peer);
    EXPECT_EQ(getpeername(static_cast<int>(unnamed.server->getSock()), address, &size), 0);
    EXPECT_EQ(zel_get_nodenameinfo(address, name, sizeof name, nullptr, 0, NI_NUMERICHOST), 0);
    EXPECT_STREQ(name, "127.0.0.1");
}

TEST(Servers, TheBacklogComesFromTheEnvironment) {
    using Row = std::tuple<const char*, unsigned int, const char*>;
    for (const auto& [value, backlog, line] : {Row{nullptr, 128, ""},
                                               {"3", 5, "RTF: Backlog set to 5\n"},
                                               {"1000", 1000, "RTF: Backlog set to 1000\n"},
                                               {"many", 5, "RTF: Backlog set to 5\n"}}) {
        hostpicture::Announce("environment QVZ_FSERV_BACKLOG");
        value ? setenv("QVZ_FSERV_BACKLOG", value, 1) : unsetenv("QVZ_FSERV_BACKLOG");
        CaptureStdout();
        const int listener = NextDescriptor();
        const Server<psockBlockingServer> server(nullptr);
        EXPECT_EQ(GetCapturedStdout(), line);
        tcp_info info{};
        socklen_t size = sizeof info;
        getsockopt(listener, IPPROTO_TCP, TCP_INFO, &info, &size);
        EXPECT_EQ(info.tcpi_sacked, backlog);
        EXPECT_EQ(Option(listener, SOL_SOCKET, SO_REUSEADDR), 1);
        EXPECT_EQ(fcntl(listener, F_GETFD), FD_CLOEXEC);
    }
}

TEST(Servers, WhatCannotBeServedOrReachedSaysSo) {
    const Server<psockBlockingServer> holder(nullptr);
    using Port = std::pair<int, const char*>;
    for (const auto& [port, complaint] :
         {Port{holder.GetPort(), "ERROR: port is busy.\n"}, {65536, ""}, {-1, ""}}) {
        Unused server;
        CaptureStderr();
        EXPECT_FALSE(server.Initialize(port));
        EXPECT_EQ(GetCapturedStderr(), complaint);
        EXPECT_EQ(server.GetPort(), 0);
    }
    using Peer = std::tuple<const char*, int, errstatus>;
    for (const auto& [host, port, cause] : {Peer{"127.0.0.1", 1, errRefused},
                                            {"127.0.0.1", 65536 + 80, errInvalid},
                                            {"127.0.0.1", -1, errInvalid},
                                            {"no-such-host.invalid", 1, errNoAddress},
                                            {"", 1, errNoAddress}}) {
        EXPECT_EQ(psockServer::Connect(host, port), nullptr) << host;
        EXPECT_EQ(errMapError(), cause) << host << ' ' << port;
    }
}

TEST(Servers, WithoutMemoryNoStreamIsMadeAndNoSocketLeft) {
    bool served = false;
    Server<psockBlockingServer> server([&](Stream stream) { return served = !stream; });
    const Stream client = server.Client();
    const long before = support::OpenDescriptors();
    countnew::exhausted = true;
    server.Run();
    const Stream none = server.Client();
    zelSocketEvent never(nullptr, zelSelectEvent::Readable); // asks no stream
    countnew::exhausted = false;
    EXPECT_TRUE(served && !none && never.GetDescriptor() == -1);
    EXPECT_EQ(support::OpenDescriptors(), before);
    EXPECT_EQ(client->Read(&served, 1, false), -1);
}

TEST(Servers, AFailedWaitIsReportedAndEndsTheLoop) {
    using Row = std::pair<int, std::string>;
    for (const auto& [msec, time] :
         {Row{-1, "(0,0)\nmsec = -1"}, {1500, "(1,500000)\nmsec = 1500"}}) {
        CaptureStdout();
        CaptureStderr();
        std::cout << std::hex << std::showbase;
        Unused().WaitAndProcess(msec);
        EXPECT_EQ(GetCapturedStderr(), "Socket failed: : Bad file descriptor\n");
        EXPECT_EQ(GetCapturedStdout(),
                  "Failure on connection's socket: 35\nwaittime = " + time + "\nLastError = 9\n");
    }
    EXPECT_TRUE(Unused().AcceptAndExecute()) << "nothing to accept on: the loop is to end";
}

/// Lets `runs` serve a connection that `hinder` makes unacceptable: true if it prints, and then
/// does next to nothing. What it prints is captured.
bool Pauses(psockServer& server, const std::function<void()>& hinder, std::thread& runs) {
    CaptureStdout();
    hinder();
    runs = std::thread([&] { server.Run(); });
    for (struct stat printed{}; printed.st_size == 0; fstat(1, &printed))
        std::this_thread::yield();
    const std::clock_t start = std::clock();
    poll(nullptr, 0, 300);
    return std::clock() - start < CLOCKS_PER_SEC / 20;
}

TEST(Servers, AnAcceptThatKeepsFailingIsTriedAgainAndDoesNotSpin) {
    const auto saidOnce = [line = "Can't make connection in psockServer...trying again. \n"s] {
        const std::string said = GetCapturedStdout();
        return said == line || said == line + line; // a second has passed on a busy host
    };
    Stream served;
    Server<psockBlockingServer> server(
        [&](Stream stream) { return served = std::move(stream), true; });
    const Stream client = server.Client();
    std::thread runs;
    const auto serve = [&](int error) {
        const auto fail = [=] { support::FailCall(SYS_accept4, error); };
        _exit(Pauses(server, fail, runs) && saidOnce());
    };
    for (const int error : {EPERM, EOPNOTSUPP})
        EXPECT_EXIT(serve(error), testing::ExitedWithCode(1), "");
    std::optional<support::DescriptorLimit> none;
    EXPECT_TRUE(Pauses(
        server, [&] { none.emplace(0); }, runs));
    EXPECT_TRUE(!server.Client() && errMapError() == errTooManyOpen);
    none.reset();
    runs.join();
    EXPECT_TRUE(saidOnce() && served && client);
}

TEST(Servers, EachStepThatFailsHasItsMessage) {
    hostpicture::Announce("environment QVZ_FSERV_BACKLOG");
    setenv("QVZ_FSERV_BACKLOG", "7", 1);
    const auto serve = [](unsigned int call, int argument, unsigned int value) {
        const long before = support::OpenDescriptors();
        support::FailCall(call, EAFNOSUPPORT, argument, value);
        CaptureStdout();
        const bool served = Server<psockBlockingServer>(nullptr).Client() != nullptr;
        const bool said = GetCapturedStdout() == "RTF: Backlog set to 7\n";
        _exit(served * 2 + (said && support::OpenDescriptors() == before));
    };
    using Row = std::tuple<unsigned int, int, unsigned int, std::string>;
    for (const auto& [call, argument, value, complaint] :
         {Row{SYS_socket, -1, 0, "ERROR: OS could not create socket.\n"},
          {SYS_setsockopt, 2, TCP_NODELAY, "ERROR: OS could not create socket.\n"},
          {SYS_setsockopt, 2, SO_REUSEADDR, "ERROR: could not set socket options.\n"},
          {SYS_getsockname, -1, 0, "ERROR: OS failed to obtain socket parameters.\n"},
          {SYS_listen, -1, 0, "ERROR: OS failed to listen on socket.\n"},
          {SYS_socket, 0, AF_INET6, ""}}) // IPv4 will do
        EXPECT_EXIT(serve(call, argument, value),
                    testing::ExitedWithCode(complaint.empty() * 2 + 1), testing::Eq(complaint));
}

TEST(Servers, AThousandConnectionsLeaveNothingBehind) {
    int left = 0;
    Server<psockBlockingServer> server([&](Stream) { return --left == 0; });
    const auto serve = [&](int connections) {
        left = connections;
        std::thread runs([&] { server.Run(); });
        for (char byte; connections > 0; --connections)
            EXPECT_EQ(server.Client()->Read(&byte, 1, false), -1);
        runs.join();
    };
    serve(10);
    const long descriptors = support::OpenDescriptors();
    const auto bytes = mallinfo2().uordblks; // 0 where a sanitizer has the heap
    serve(1000);
    EXPECT_EQ(support::OpenDescriptors(), descriptors);
    EXPECT_LT(mallinfo2().uordblks, bytes + 16384);
}

TEST(Streams, ReadinessEndAndFailure) {
    Pair pair, other;
    psockStream& client = *pair.client;
    psockStream& server = *pair.server;
    char byte = 0;
    fd_set read, write, except, empty;
    FD_ZERO(&empty);
    std::memset(&read, 0xFF, sizeof read);
    timeval wait{5, 0};
    errno = 77;
    EXPECT_EQ(client.Select(&read, nullptr, nullptr, &wait), 0);
    EXPECT_EQ(client.Select(nullptr, nullptr, nullptr, &wait), 0);
    EXPECT_EQ(wait.tv_sec * 1000000 + wait.tv_usec, 10);
    EXPECT_EQ(std::memcmp(&read, &empty, sizeof empty), 0);
    EXPECT_FALSE(client.Exception());
    EXPECT_TRUE(server.Write("a", 1, false) == 1 && server.Write("!", 1, true) == 1);
    EXPECT_EQ(client.SelectWait(nullptr, nullptr, &except, nullptr), 1);
    EXPECT_TRUE(client.Exception());
    EXPECT_EQ(client.SelectWait(&read, &write, &except, nullptr), 3);
    EXPECT_TRUE(FD_ISSET(client.getSock(), &read) && FD_ISSET(client.getSock(), &write));
    EXPECT_EQ(client.Read(&byte, 1, true), 1);
    EXPECT_EQ(byte, '!');
    EXPECT_EQ(errno, 77) << "success leaves the last error alone";
    EXPECT_EQ(client.getErr(), errOK);
    wait.tv_usec = 1000000;
    EXPECT_EQ(client.SelectWait(&read, nullptr, nullptr, &wait), -1);
    EXPECT_TRUE(FD_ISSET(client.getSock(), &read)) << "a failure leaves the sets alone";
    EXPECT_EQ(client.Read(&byte, -1, false), -1);
    EXPECT_EQ(client.getErr(), errInvalid);

    server.CloseSocket();
    const int innocent = open("/dev/null", O_RDONLY); // takes the number over
    server.CloseSocket();
    EXPECT_EQ(close(innocent), 0) << "closed twice";
    EXPECT_EQ(server.getSock(), 0xFFFFFFFFU);
    EXPECT_EQ(server.Read(&byte, 1, false) + server.Select(&read, nullptr, nullptr, &wait), -2);
    EXPECT_EQ(server.getErr(), errBadHandle);
    EXPECT_TRUE(server.Exception());

    other.server.reset();
    EXPECT_EQ(other.client->SelectWait(&read, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(other.client->Read(&byte, 1, false), -1);
    EXPECT_EQ(other.client->getErr(), errOK) << "an orderly end is no error";
    while (other.client->Write("x", 1, false) == 1) // to a peer that is gone: no SIGPIPE
        ;
    EXPECT_TRUE(other.client->getErr() == errBrokenPipe || other.client->getErr() == errReset);
}

TEST(Streams, SocketsBeyondTheSizeOfASetWork) {
    rlimit former{};
    getrlimit(RLIMIT_NOFILE, &former);
    const rlimit enough{4096, std::max(former.rlim_max, rlim_t(4096))};
    if (setrlimit(RLIMIT_NOFILE, &enough) != 0)
        GTEST_SKIP() << "this host does not give 4096 descriptors";
    std::vector<int> taken;
    while (taken.empty() || taken.back() < FD_SETSIZE + 64)
        taken.push_back(open("/dev/null", O_RDONLY));
    const Pair pair;
    ASSERT_TRUE(pair.client);
    struct {
        fd_set set;
        char behind[512] = {};
    } guarded;
    EXPECT_EQ(pair.client->SelectWait(nullptr, &guarded.set, nullptr, nullptr), 1);
    EXPECT_EQ(std::string(guarded.behind, 512), std::string(512, '\0'));
    for (const int one : taken)
        close(one);
    setrlimit(RLIMIT_NOFILE, &former);
}

TEST(Streams, SignalsCutNothingShort) {
    const support::SignalStorm storm;
    const auto afterSignals = [](std::function<void()> call) {
        return std::thread([call, hits = support::SignalStorm::Hits() + 100] {
            while (support::SignalStorm::Hits() < hits)
                std::this_thread::yield();
            call();
        });
    };
    hostpicture::Announce("environment QVZ_FSERV_BACKLOG");
    setenv("QVZ_FSERV_BACKLOG", "5", 1);
    int served = 0;
    Server<psockBlockingServer> server([&](Stream) { return ++served == 8; });
    EXPECT_GE(support::MillisecondsOf([&] { EXPECT_EQ(server.Wait(200), 2); }), 200);
    std::thread other = afterSignals([&] { server.Client(); });
    CaptureStdout();
    EXPECT_FALSE(server.AcceptAndExecute());
    EXPECT_EQ(GetCapturedStdout(), "") << "nothing to try again";
    other.join();

    // A queue takes six; the seventh attempt is under way until somebody accepts or all ends.
    const auto connectSeventh = [](int port) {
        std::vector<Stream> queue;
        while (queue.size() < 7)
            queue.emplace_back(psockServer::Connect("127.0.0.1", port));
        return std::move(queue.back());
    };
    other = afterSignals([&] { server.Run(); });
    errno = 77;
    EXPECT_TRUE(connectSeventh(server.GetPort()));
    EXPECT_EQ(errno, 77) << "success leaves the last error alone";
    other.join();
    auto ending = std::make_unique<Server<psockBlockingServer>>(nullptr);
    const int port = ending->GetPort();
    other = afterSignals([&] { ending.reset(); });
    EXPECT_FALSE(connectSeventh(port));
    EXPECT_EQ(errMapError(), errRefused);
    other.join();
}

TEST(Events, AnyMixIsWaitedFor) {
    struct Refusing : zelSocketEvent { // once
        using zelSocketEvent::zelSocketEvent;
        bool OnEventSignaled() override {
            char byte;
            return GetSockStream()->Read(&byte, 1, false) == 1 && ++fired > 1;
        }
        void OnReset() override { ++resets; }
        int fired = 0, resets = 0;
    };
    struct : zelEvent {
        using zelEvent::zelEvent;
        int GetKind() override { return AllocEventKind(); }
        void* GetInfo() override { return this; }
    } never{nullptr};
    const Pair pair;
    zelSocketEvent readable(pair.client.get(), zelSelectEvent::Readable);
    zelSocketEvent writable(pair.client.get(), zelSelectEvent::Writable);
    zelSocketEvent urgent(pair.client.get(), zelSelectEvent::Exceptional);
    EXPECT_EQ(zelSocketEvent::cast(&urgent), &urgent);
    EXPECT_EQ(zelSocketEvent::cast(&never), nullptr);
    EXPECT_EQ(static_cast<unsigned int>(urgent.GetDescriptor()), pair.client->getSock());
    EXPECT_FALSE(never.IsSignaled() || never.Wait(-1) || readable.IsSignaled());
    EXPECT_TRUE(writable.IsSignaled());

    std::vector<zelEvent*> events(100, &readable);
    events[0] = nullptr;
    events[1] = &never;
    events[98] = &writable;
    const support::DescriptorLimit few(9); // the process may have fewer than there are events
    EXPECT_EQ(zelEvent::WaitAny(events.data(), 100, -1), 98);
    events[98] = &urgent;
    {
        const support::SignalStorm storm;
        const auto timeOut = [&] { EXPECT_EQ(zelEvent::WaitAny(events.data(), 100, 100), -1); };
        EXPECT_GE(support::MillisecondsOf(timeOut), 100);
    }
    Refusing refusing(pair.client.get(), zelSelectEvent::Readable);
    pair.server->Write("1", 1, false);
    EXPECT_FALSE(refusing.Wait(50)) << "refused, and nothing came after it";
    pair.server->Write("2", 1, false);
    EXPECT_TRUE(refusing.Wait(-1));
    EXPECT_EQ(refusing.fired * 10 + refusing.resets, 23);

    zelEventSet set;
    zelSocketEvent same(pair.client.get(), zelSelectEvent::Readable);
    EXPECT_EQ(set.Wait(-1), nullptr) << "nothing in it";
    EXPECT_TRUE(set.Add(&urgent) && set.Add(&readable) && set.Add(&same) && set.Add(&writable));
    EXPECT_FALSE(set.Add(&never) || set.Add(&same) || set.Remove(&never));
    EXPECT_EQ(set.Wait(-1), &writable);
    EXPECT_TRUE(set.Remove(&writable));
    EXPECT_GE(support::MillisecondsOf([&] { EXPECT_EQ(set.Wait(50), nullptr); }), 50);
    pair.server->Write("3", 1, false);
    pollfd fired{set.GetDescriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&fired, 1, -1), 1);
    const zelEvent* const first = set.Wait(-1);
    EXPECT_TRUE(first == &readable || first == &same);
    EXPECT_EQ(set.Wait(-1), first == &same ? &readable : &same) << "each in its turn";
    EXPECT_TRUE(set.Remove(&readable) && set.Remove(&same) && set.Add(&refusing));
    refusing.fired = refusing.resets = 0;
    EXPECT_EQ(set.Wait(50), nullptr) << "refused";
    pair.server->Write("4", 1, false);
    EXPECT_EQ(set.Wait(-1), &refusing);
    EXPECT_EQ(refusing.fired * 10 + refusing.resets, 21);
    EXPECT_EQ(set.Wait(0), nullptr);
    EXPECT_EQ(refusing.resets, 2);
    EXPECT_TRUE(set.Remove(&refusing));

    // A hang-up is no urgent data, and waiting for that does not burn the processor.
    shutdown(static_cast<int>(pair.server->getSock()), SHUT_RDWR);
    shutdown(static_cast<int>(pair.client->getSock()), SHUT_RDWR);
    const std::clock_t start = std::clock();
    timeval wait{0, 300000};
    fd_set sockets;
    EXPECT_FALSE(urgent.Wait(300) || set.Wait(-1));
    const auto timeOut = [&] {
        EXPECT_EQ(pair.client->SelectWait(nullptr, nullptr, &sockets, &wait), 0);
    };
    EXPECT_GE(support::MillisecondsOf(timeOut), 300);
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 50);
    EXPECT_TRUE(readable.Wait(-1) && writable.Wait(-1));
}

} // namespace
