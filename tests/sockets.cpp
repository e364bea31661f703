// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/loopback.h"
#include "tests/support.h"

namespace {

using loopback::Connected;
using loopback::Pair;
using loopback::Server;
using loopback::Stream;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

/// The number that the next descriptor of the process will have.
int NextDescriptor() {
    const int next = dup(0);
    close(next);
    return next;
}

int Option(unsigned int socket, int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    getsockopt(static_cast<int>(socket), level, name, &value, &size);
    return value;
}

/// Sends a byte, waits for it at the other end, and back again.
void ExpectTalk(const Pair& pair) {
    char byte = 'x';
    ASSERT_TRUE(pair.client && pair.server);
    ASSERT_EQ(pair.client->Write("a", 1, false), 1);
    ASSERT_EQ(pair.server->Read(&byte, 1, false), 1);
    EXPECT_EQ(byte, 'a');
    ASSERT_EQ(pair.server->Write("b", 1, false), 1);
    ASSERT_EQ(pair.client->Read(&byte, 1, false), 1);
    EXPECT_EQ(byte, 'b');
}

TEST(Servers, ANonBlockingServerServesWhatWaitsAndComesBack) {
    int served = 0;
    bool last = false;
    Server<psockNonBlockingServer> server([&](Stream stream) {
        served += stream != nullptr;
        return last;
    });
    EXPECT_EQ(server.GetPort(), 0);
    ASSERT_TRUE(server.Initialize(SystemAssigned));
    EXPECT_FALSE(server.IsConnectionReceived());
    const Stream one(psockServer::Connect("127.0.0.1", server.GetPort()));
    const Stream two(psockServer::Connect("127.0.0.1", server.GetPort()));
    EXPECT_TRUE(server.IsConnectionReceived());
    server.Run();
    EXPECT_EQ(served, 2);
    EXPECT_EQ(server.idle, 1);

    last = true;
    const Stream three(psockServer::Connect("127.0.0.1", server.GetPort()));
    const Stream four(psockServer::Connect("127.0.0.1", server.GetPort()));
    server.Run();
    EXPECT_EQ(served, 3);
    EXPECT_EQ(server.idle, 1);
    EXPECT_TRUE(server.IsConnectionReceived());
}

TEST(Servers, AServiceServesUntilItIsToldToStop) {
    struct Paused : zelService {
        void DoPause() override { ++pauses; }
        int pauses = 0;
    };
    const auto mark = [](int) {};
    signal(SIGUSR1, mark);
    const auto ours = [](int number) {
        struct sigaction now;
        sigaction(number, nullptr, &now);
        return now.sa_handler;
    };
    int msec = 5;
    for (const bool bySignal : {false, true}) {
        SCOPED_TRACE(bySignal ? "signal" : "request");
        Paused service;
        ASSERT_TRUE(service.StopOnSignal(SIGUSR1) && service.StopOnSignal(SIGUSR1));
        ASSERT_TRUE(service.StopOnSignal(SIGUSR2));
        for (const int refused : {0, 65, SIGKILL, SIGSEGV})
            EXPECT_FALSE(service.StopOnSignal(refused)) << refused;
        EXPECT_FALSE(zelService().StopOnSignal(SIGUSR1)) << "taken by another service";

        std::promise<void> served;
        Server<psockService> server([&](Stream) { return served.set_value(), false; }, service,
                                    msec);
        ASSERT_TRUE(server.Initialize(SystemAssigned));
        std::thread runs([&] { server.Run(); });
        const Stream client(psockServer::Connect("localhost", server.GetPort()));
        served.get_future().wait();
        EXPECT_FALSE(service.IsStopSignaled());
        if (bySignal)
            kill(getpid(), SIGUSR1);
        else
            service.RequestStop();
        runs.join();
        EXPECT_TRUE(service.IsStopSignaled());
        EXPECT_EQ(service.pauses, server.idle);
        EXPECT_FALSE(zelService().IsStopSignaled());
        signal(SIGUSR2, SIG_IGN);
    }
    EXPECT_EQ(ours(SIGUSR1), static_cast<sighandler_t>(mark)) << "not put back";
    EXPECT_EQ(ours(SIGUSR2), SIG_IGN) << "a later handler was replaced";
}

TEST(Servers, EveryAddressOfTheHostReachesThem) {
    char name[256] = "";
    gethostname(name, sizeof name);
    for (const char* host : {"localhost", "127.0.0.1", "::1", static_cast<const char*>(name)}) {
        SCOPED_TRACE(host);
        const Pair pair = Connected(host);
        if (!pair.client) {
            EXPECT_EQ(errMapError(), errNoAddress);
            std::printf("skipped: this host has no address for %s\n", host);
            continue;
        }
        ExpectTalk(pair);
        EXPECT_EQ(pair.client->IsOnTheSameMachine(), pair.server->IsOnTheSameMachine());
        if (host != name) {
            EXPECT_TRUE(pair.client->IsOnTheSameMachine());
        }
        for (psockStream* stream : {pair.client.get(), pair.server.get()}) {
            EXPECT_EQ(Option(stream->getSock(), IPPROTO_TCP, TCP_NODELAY), 1);
            EXPECT_EQ(fcntl(static_cast<int>(stream->getSock()), F_GETFD), FD_CLOEXEC);
        }
    }
}

TEST(Servers, TheBacklogComesFromTheEnvironment) {
    struct {
        const char* value;
        unsigned int backlog;
        const char* line;
    } const rows[] = {{nullptr, 128, ""},
                      {"3", 5, "RTF: Backlog set to 5\n"},
                      {"1000", 1000, "RTF: Backlog set to 1000\n"},
                      {"many", 5, "RTF: Backlog set to 5\n"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        row.value ? setenv("QVZ_FSERV_BACKLOG", row.value, 1) : unsetenv("QVZ_FSERV_BACKLOG");
        Server<psockBlockingServer> server(nullptr);
        CaptureStdout();
        const int listener = NextDescriptor();
        EXPECT_TRUE(server.Initialize(SystemAssigned));
        EXPECT_EQ(GetCapturedStdout(), row.line);
        tcp_info info{};
        socklen_t size = sizeof info;
        getsockopt(listener, IPPROTO_TCP, TCP_INFO, &info, &size);
        EXPECT_EQ(info.tcpi_sacked, row.backlog);
        EXPECT_EQ(fcntl(listener, F_GETFD), FD_CLOEXEC);
        EXPECT_EQ(Option(static_cast<unsigned int>(listener), SOL_SOCKET, SO_REUSEADDR), 1);
    }
}

TEST(Servers, WhatCannotBeServedOrReachedSaysSoAndLeavesNothingOpen) {
    const long before = support::OpenDescriptors();
    {
        Server<psockBlockingServer> holder(nullptr), late(nullptr), beyond(nullptr), poor(nullptr);
        ASSERT_TRUE(holder.Initialize(SystemAssigned));
        const auto complaint = [](psockServer& server, int port) {
            CaptureStderr();
            EXPECT_FALSE(server.Initialize(port)) << port;
            EXPECT_EQ(server.GetPort(), 0);
            return GetCapturedStderr();
        };
        EXPECT_EQ(complaint(late, holder.GetPort()), "ERROR: port is busy.\n");
        EXPECT_EQ(complaint(beyond, 65536), "");
        EXPECT_EQ(complaint(beyond, -1), "");
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        CaptureStderr();
        setenv("QVZ_FSERV_BACKLOG", "7", 1);
        CaptureStdout();
        const rlimit none{static_cast<rlim_t>(NextDescriptor()), limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        EXPECT_FALSE(poor.Initialize(SystemAssigned));
        EXPECT_EQ(psockServer::Connect("127.0.0.1", 1), nullptr);
        EXPECT_EQ(errMapError(), errTooManyOpen);
        setrlimit(RLIMIT_NOFILE, &limit);
        EXPECT_EQ(GetCapturedStdout(), "RTF: Backlog set to 7\n");
        EXPECT_EQ(GetCapturedStderr(), "ERROR: OS could not create socket.\n");

        struct {
            const char* host;
            int port;
            errstatus cause;
        } const rows[] = {{"127.0.0.1", 1, errRefused},
                          {"127.0.0.1", 65536 + holder.GetPort(), errInvalid},
                          {"127.0.0.1", -1, errInvalid},
                          {"no-such-host.invalid", 1, errNoAddress},
                          {"", 1, errNoAddress}};
        for (const auto& row : rows) {
            EXPECT_EQ(psockServer::Connect(row.host, row.port), nullptr) << row.host;
            EXPECT_EQ(errName(errMapError()), std::string(errName(row.cause))) << row.port;
        }
    }
    EXPECT_EQ(support::OpenDescriptors(), before);
}

TEST(Servers, AFailedWaitIsReportedAndEndsTheLoop) {
    Server<psockBlockingServer> server(nullptr); // never listens
    struct {
        int msec;
        const char* time;
    } const rows[] = {{-1, "(0,0)\nmsec = -1"}, {1500, "(1,500000)\nmsec = 1500"}};
    for (const auto& row : rows) {
        CaptureStdout();
        CaptureStderr();
        server.WaitAndProcess(row.msec);
        const std::string number = std::to_string(EBADF);
        EXPECT_EQ(GetCapturedStderr(), "Socket failed: : Bad file descriptor\n");
        EXPECT_EQ(GetCapturedStdout(),
                  "Failure on connection's socket: 35\nwaittime = " + std::string(row.time) +
                      "\nLastError = " + number + "\n");
    }
    EXPECT_TRUE(server.AcceptAndExecute()) << "no socket to accept on: the loop is to end";
}

TEST(Servers, RunningOutOfDescriptorsIsWaitedOut) {
    Stream served;
    Server<psockBlockingServer> server([&](Stream stream) {
        served = std::move(stream);
        return true;
    });
    ASSERT_TRUE(server.Initialize(SystemAssigned));
    const Stream client(psockServer::Connect("127.0.0.1", server.GetPort()));
    int console[2];
    ASSERT_EQ(pipe2(console, O_CLOEXEC | O_NONBLOCK), 0);
    const int output = dup(1);
    dup2(console[1], 1);
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{static_cast<rlim_t>(NextDescriptor()), limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    std::thread runs([&] { server.Run(); });
    const std::string line = "Can't make connection in psockServer...trying again. \n";
    pollfd printed{console[0], POLLIN, 0};
    EXPECT_EQ(poll(&printed, 1, -1), 1);
    char text[4096];
    const ssize_t length = read(console[0], text, sizeof text);
    EXPECT_EQ(std::string(text, static_cast<size_t>(length)), line);
    EXPECT_EQ(poll(&printed, 1, 300), 0) << "more than one line a second";
    setrlimit(RLIMIT_NOFILE, &limit);
    runs.join();
    dup2(output, 1);
    ASSERT_TRUE(served && client);
    for (const int descriptor : {output, console[0], console[1]})
        close(descriptor);
}

TEST(Servers, AThousandConnectionsLeaveNothingBehind) {
    int left = 0;
    Server<psockBlockingServer> server([&](Stream) { return --left == 0; });
    ASSERT_TRUE(server.Initialize(SystemAssigned));
    const auto serve = [&](int connections) {
        left = connections;
        std::thread runs([&] { server.Run(); });
        char byte;
        for (int i = 0; i < connections; ++i) {
            const Stream client(psockServer::Connect("127.0.0.1", server.GetPort()));
            EXPECT_EQ(client->Read(&byte, 1, false), -1);
        }
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
    Pair pair = Connected();
    psockStream& client = *pair.client;
    psockStream& server = *pair.server;
    char byte = 0;
    fd_set read, write, except;
    timeval wait{5, 0};
    errno = 77;
    std::memset(&read, 0xFF, sizeof read);
    EXPECT_EQ(client.Select(&read, nullptr, nullptr, &wait), 0);
    EXPECT_EQ(client.Select(nullptr, nullptr, nullptr, &wait), 0);
    EXPECT_EQ(wait.tv_sec * 1000000 + wait.tv_usec, 10);
    fd_set empty;
    FD_ZERO(&empty);
    EXPECT_EQ(std::memcmp(&read, &empty, sizeof empty), 0);
    EXPECT_FALSE(client.Exception());
    EXPECT_EQ(server.Write("a", 1, false) + server.Write("!", 1, true), 2);
    EXPECT_EQ(client.SelectWait(nullptr, nullptr, &except, nullptr), 1);
    EXPECT_TRUE(client.Exception());
    EXPECT_EQ(client.SelectWait(&read, &write, &except, nullptr), 3);
    EXPECT_TRUE(FD_ISSET(client.getSock(), &read) && FD_ISSET(client.getSock(), &write));
    EXPECT_EQ(client.Read(&byte, 1, true), 1);
    EXPECT_EQ(byte, '!');
    EXPECT_EQ(client.Read(&byte, 1, false), 1);
    EXPECT_EQ(errno, 77) << "success leaves the last error alone";
    EXPECT_EQ(client.getErr(), errOK);
    wait.tv_usec = 1000000;
    EXPECT_EQ(client.SelectWait(&read, nullptr, nullptr, &wait), -1);
    EXPECT_TRUE(FD_ISSET(client.getSock(), &read)) << "a failure leaves the sets alone";
    EXPECT_EQ(client.Read(&byte, -1, false), -1);
    EXPECT_EQ(client.getErr(), errInvalid);

    Pair other = Connected();
    server.CloseSocket();
    const int reused = NextDescriptor();
    const int innocent = dup(0);
    EXPECT_EQ(innocent, reused);
    server.CloseSocket();
    EXPECT_EQ(fcntl(innocent, F_GETFD), 0) << "closed twice";
    close(innocent);
    EXPECT_EQ(server.getSock(), 0xFFFFFFFFU);
    EXPECT_EQ(server.Read(&byte, 1, false), -1);
    EXPECT_EQ(server.getErr(), errBadHandle);
    EXPECT_EQ(server.Select(&read, nullptr, nullptr, &wait), -1);
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
    const rlimit enough{4096, 4096};
    if (setrlimit(RLIMIT_NOFILE, &enough) != 0)
        GTEST_SKIP() << "this host does not give 4096 descriptors";
    while (dup(0) < FD_SETSIZE + 64)
        ;
    const Pair pair = Connected();
    ExpectTalk(pair);
    ASSERT_GT(pair.client->getSock(), FD_SETSIZE + 0U);
    struct {
        fd_set set;
        char behind[512] = {};
    } guarded;
    EXPECT_EQ(pair.client->SelectWait(nullptr, &guarded.set, nullptr, nullptr), 1);
    EXPECT_EQ(std::string(guarded.behind, sizeof guarded.behind), std::string(512, '\0'));
    EXPECT_FALSE(pair.client->Exception());
}

TEST(Streams, SignalsCutNothingShort) {
    const support::SignalStorm storm;
    setenv("QVZ_FSERV_BACKLOG", "5", 1);
    int served = 0;
    Server<psockBlockingServer> server([&](Stream stream) {
        char byte;
        while (stream->Read(&byte, 1, false) == 1 && stream->Write(&byte, 1, false) == 1)
            ;
        return ++served == 7;
    });
    ASSERT_TRUE(server.Initialize(SystemAssigned));
    EXPECT_GE(support::MillisecondsOf([&] { EXPECT_EQ(server.Wait(200), 2); }), 200);

    // The queue takes six; the seventh attempt is under way until somebody accepts.
    std::vector<Stream> queue;
    while (queue.size() < 6)
        queue.emplace_back(psockServer::Connect("127.0.0.1", server.GetPort()));
    std::thread runs([&, hits = support::SignalStorm::Hits() + 100] {
        while (support::SignalStorm::Hits() < hits)
            std::this_thread::yield();
        server.Run();
    });
    queue.front().reset();
    queue.emplace_back(psockServer::Connect("127.0.0.1", server.GetPort()));
    while (queue.size() > 1) {
        ASSERT_TRUE(queue[1]);
        for (char sent = 0, back = -1; sent < 100; ++sent) {
            ASSERT_EQ(queue[1]->Write(&sent, 1, false), 1);
            ASSERT_EQ(queue[1]->Read(&back, 1, false), 1);
            ASSERT_EQ(back, sent);
        }
        queue.erase(queue.begin() + 1);
    }
    runs.join();
}

TEST(Events, AnyMixIsWaitedFor) {
    struct Refusing : zelSocketEvent {
        using zelSocketEvent::zelSocketEvent;
        bool OnEventSignaled() override {
            char byte;
            GetSockStream()->Read(&byte, 1, false); // what made it fire
            return ++fired > 1;
        }
        void OnReset() override { ++resets; }
        int fired = 0, resets = 0;
    };
    struct Other : zelEvent {
        Other() : zelEvent(nullptr) {}
        int GetKind() override { return AllocEventKind(); }
        void* GetInfo() override { return this; }
    } never;
    const Pair pair = Connected();
    zelSocketEvent readable(pair.client.get(), zelSelectEvent::Readable);
    zelSocketEvent writable(pair.client.get(), zelSelectEvent::Writable);
    zelSocketEvent urgent(pair.client.get(), zelSelectEvent::Exceptional);
    EXPECT_EQ(zelSocketEvent::cast(&urgent), &urgent);
    EXPECT_EQ(zelSocketEvent::cast(&never), nullptr);
    EXPECT_EQ(static_cast<unsigned int>(urgent.GetDescriptor()), pair.client->getSock());
    EXPECT_EQ(never.GetDescriptor(), -1);
    EXPECT_FALSE(never.IsSignaled() || never.Wait(-1) || readable.IsSignaled());
    EXPECT_TRUE(writable.IsSignaled());

    std::vector<zelEvent*> events(100, &readable);
    events[0] = nullptr;
    events[1] = &never;
    const auto any = [&](int msec) { return zelEvent::WaitAny(events.data(), 100, msec); };
    events[98] = &writable;
    EXPECT_EQ(any(-1), 98);
    events[98] = &urgent;
    {
        const support::SignalStorm storm;
        EXPECT_GE(support::MillisecondsOf([&] { EXPECT_EQ(any(100), -1); }), 100);
    }
    Refusing refusing(pair.client.get(), zelSelectEvent::Readable);
    pair.server->Write("1", 1, false);
    EXPECT_FALSE(refusing.Wait(50)) << "refused, and nothing came after it";
    pair.server->Write("2", 1, false);
    EXPECT_TRUE(refusing.Wait(-1));
    EXPECT_EQ(refusing.fired, 2);
    EXPECT_EQ(refusing.resets, 3);

    // A hang-up is no urgent data, and waiting for that does not burn the processor.
    pair.server->CloseSocket();
    shutdown(static_cast<int>(pair.client->getSock()), SHUT_RDWR);
    const std::clock_t start = std::clock();
    EXPECT_FALSE(urgent.Wait(300));
    timeval wait{0, 300000};
    fd_set set;
    EXPECT_EQ(pair.client->SelectWait(nullptr, nullptr, &set, &wait), 0);
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 10);
    EXPECT_TRUE(readable.Wait(-1) && writable.Wait(-1));
}

} // namespace
