// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <new>
#include <string>
#include <thread>

#include "outside/quillmarsh/console.h"
#include "outside/quillmarsh/sockets.h"
#include "outside/win32/handles.h"
#include "sockets/psockstreamimpl.h"

const int SystemAssigned = 0;

namespace {

/// The TCP addresses of a node and a port.
class Addresses {
public:
    Addresses(const char* node, int port, int flags) {
        addrinfo hints{};
        hints.ai_flags = flags;
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = SOCK_STREAM;
        found = zel_get_nodeaddrinfo(node, std::to_string(port).c_str(), &hints, &list) == 0;
    }
    Addresses(const Addresses&) = delete;
    Addresses& operator=(const Addresses&) = delete;
    ~Addresses() { zel_free_nodeaddrinfo(list); }

    bool Found() const { return found; }
    /// Only the first address counts. Requires: Found.
    const addrinfo& First() const { return *list; }

    int NewSocket() const {
        return zel_socket(list->ai_family, list->ai_socktype, list->ai_protocol);
    }

private:
    addrinfo* list = nullptr;
    bool found;
};

/// Backlog of a listener: how many connections may queue up.
int Backlog() {
    const char* wanted = zel_getenv("QVZ_FSERV_BACKLOG");
    if (wanted == nullptr)
        return 128;
    const int backlog = std::max(5, std::atoi(wanted));
    zel_printf("RTF: Backlog set to %d\n", backlog);
    return backlog;
}

/// What can be done about a failed accept.
enum class Remedy { TryAgain, Wait, None };

Remedy RemedyFor(errstatus failure) {
    switch (failure) {
    case errBadHandle:
    case errInvalid:
        return Remedy::None;
    case errReset:
    case errTimedOut:
    case errUnreachable:
        return Remedy::TryAgain; // the one connection is lost and gone from the queue
    default:
        return Remedy::Wait; // what failed may fail for long, and the queue stays as it is
    }
}

/// The wait until a cause may have passed, with the line that says so.
class BackOff {
public:
    bool LineIsDue() {
        const Clock::time_point now = Clock::now();
        if (printed && now - lastLine < std::chrono::seconds(1))
            return false;
        printed = true;
        lastLine = now;
        return true;
    }
    void Pause() {
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::milliseconds(1000));
    }

private:
    using Clock = std::chrono::steady_clock;
    std::chrono::milliseconds pause{10};
    Clock::time_point lastLine;
    bool printed = false;
};

/// A stream that owns `socket`; null, with the socket closed, where memory has run out.
psockStream* NewStream(int socket) {
    psockStream* stream = new (std::nothrow) psockStreamImpl(static_cast<unsigned int>(socket));
    if (stream == nullptr)
        zel_closesocket(socket);
    return stream;
}

} // namespace

psockServer::psockServer() : socket(noSocket) {}

psockServer::~psockServer() {
    if (socket != noSocket)
        zel_closesocket(Descriptor(socket));
}

bool psockServer::DoIdle() {
    return false;
}

bool psockServer::Initialize(int port) {
    const Addresses addresses(nullptr, port, AI_PASSIVE);
    if (!addresses.Found())
        return false;
    const int made = addresses.NewSocket();
    socket = static_cast<unsigned int>(made);
    const int backlog = Backlog();

    const auto failed = [](const char* message) {
        std::cerr << message << std::endl;
        return false;
    };
    if (made == -1)
        return failed("ERROR: OS could not create socket.");
    // Lets a server start again while connections of the one before are still dying away.
    const int one = 1;
    if (zel_setsockopt(made, 65535, 4, &one, sizeof one) != 0)
        return failed("ERROR: could not set socket options.");
    if (zel_bind(made, addresses.First().ai_addr, addresses.First().ai_addrlen) != 0)
        return failed("ERROR: port is busy.");
    sockaddr_in6 bound;
    socklen_t length = sizeof bound;
    if (zel_getsockname(made, reinterpret_cast<sockaddr*>(&bound), &length) != 0)
        return failed("ERROR: OS failed to obtain socket parameters.");
    if (zel_listen(made, backlog) != 0)
        return failed("ERROR: OS failed to listen on socket.");
    return true;
}

int psockServer::GetPort() const {
    sockaddr_in6 room;
    auto* address = reinterpret_cast<sockaddr*>(&room);
    socklen_t length = sizeof room;
    char port[NI_MAXSERV];
    if (zel_getsockname(Descriptor(socket), address, &length) != 0 ||
        zel_get_nodenameinfo(address, nullptr, 0, port, sizeof port, NI_NUMERICSERV) != 0)
        return 0;
    return std::atoi(port);
}

psockStream* psockServer::Connect(const char* host, int port) {
    const Addresses addresses(host, port, 0);
    if (!addresses.Found())
        return nullptr;
    const int made = addresses.NewSocket();
    if (made == -1)
        return nullptr;
    if (zel_connect(made, addresses.First().ai_addr, addresses.First().ai_addrlen) != 0) {
        zel_closesocket(made);
        return nullptr;
    }
    return NewStream(made);
}

psockServer::SockWaitRC psockServer::Wait(int msec) {
    fd_set set;
    fds_zero(&set);
    fds_set(socket, &set);
    timeval wait{0, 0};
    if (msec != -1) {
        wait.tv_sec = msec / 1000;
        wait.tv_usec = 1000L * (msec % 1000);
    }
    switch (fds_select(socket, &set, nullptr, nullptr, msec == -1 ? nullptr : &wait)) {
    case 1:
        return SockWaitConnection;
    case -1:
        break;
    default:
        return SockWaitTimeout;
    }
    // Printing may fail too: every line tells the failure of the wait. The numbers are decimal
    // whatever the program has told its output.
    const int failure = errno;
    std::cout << "Failure on connection's socket: " + std::to_string(errMapError()) << std::endl;
    errno = failure;
    std::perror("Socket failed: ");
    std::cout << "waittime = (" + std::to_string(wait.tv_sec) + "," + std::to_string(wait.tv_usec) +
                     ")"
              << std::endl;
    std::cout << "msec = " + std::to_string(msec) << std::endl;
    errno = failure;
    std::cout << "LastError = " + std::to_string(GetLastError()) << std::endl;
    errno = failure;
    return SockWaitFailed;
}

bool psockServer::AcceptAndExecute() {
    BackOff backOff;
    for (;;) {
        const int accepted = zel_accept(Descriptor(socket), nullptr, nullptr);
        if (accepted != -1)
            return Execute(NewStream(accepted));
        const Remedy remedy = RemedyFor(errMapError());
        if (remedy == Remedy::None)
            return true;
        if (remedy == Remedy::TryAgain || backOff.LineIsDue())
            zel_printf("Can't make connection in psockServer...trying again. \n");
        if (remedy == Remedy::Wait)
            backOff.Pause();
    }
}

void psockServer::WaitAndProcess(int msec) {
    for (;;) {
        const SockWaitRC rc = Wait(msec);
        if (rc == SockWaitFailed)
            return;
        if (rc == SockWaitConnection ? AcceptAndExecute() : DoIdle())
            return;
    }
}

void psockBlockingServer::Run() {
    WaitAndProcess(-1);
}

void psockNonBlockingServer::Run() {
    WaitAndProcess(0);
}

bool psockNonBlockingServer::DoIdle() {
    return true;
}

bool psockNonBlockingServer::IsConnectionReceived() {
    return Wait(0) == SockWaitConnection;
}

psockService::psockService(zelService& served, int msec) : service(served), pollMsec(msec) {}

void psockService::Run() {
    WaitAndProcess(pollMsec);
}

bool psockService::DoIdle() {
    service.DoPause();
    return service.IsStopSignaled();
}
