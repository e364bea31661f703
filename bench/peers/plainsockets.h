// SPDX-License-Identifier: MIT
//
// Sockets of the loopback by bare system calls, for the rows about sockets: the limit, and the far
// end that is the same for every contender.
#ifndef PLINTH_BENCH_PEERS_PLAINSOCKETS_H
#define PLINTH_BENCH_PEERS_PLAINSOCKETS_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace plain {

/// Ends the program where something fails that nobody measures.
inline int Must(int result) {
    if (result < 0)
        std::abort();
    return result;
}

inline void SendWithoutDelay(int socket) {
    const int one = 1;
    Must(setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one));
}

/// Owns a descriptor.
class Socket {
public:
    explicit Socket(int taken) : descriptor(Must(taken)) {}
    Socket(Socket&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
    Socket& operator=(Socket&&) = delete;
    ~Socket() {
        if (descriptor >= 0)
            close(descriptor);
    }
    int Get() const { return descriptor; }
    int Release() { return std::exchange(descriptor, -1); }

private:
    int descriptor;
};

inline sockaddr_in Loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

inline Socket Connect(std::uint16_t port) {
    Socket made(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    SendWithoutDelay(made.Get());
    const sockaddr_in address = Loopback(port);
    Must(connect(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    return made;
}

/// A port of the system's choice.
class Listener {
public:
    Listener() : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = Loopback(0);
        auto* general = reinterpret_cast<sockaddr*>(&address);
        socklen_t length = sizeof address;
        Must(bind(socket.Get(), general, length));
        Must(listen(socket.Get(), 128));
        Must(getsockname(socket.Get(), general, &length));
        port = ntohs(address.sin_port);
    }
    std::uint16_t Port() const { return port; }
    /// The next connection, or -1 once the listener was stopped.
    int Accept() const {
        const int accepted = accept4(socket.Get(), nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted >= 0)
            SendWithoutDelay(accepted);
        return accepted;
    }
    void Stop() const { Must(shutdown(socket.Get(), SHUT_RDWR)); }

private:
    Socket socket;
    std::uint16_t port = 0;
};

inline bool SendAll(int socket, const char* data, std::size_t size) {
    while (size != 0) {
        const ssize_t sent = send(socket, data, size, MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

inline bool ReceiveAll(int socket, char* data, std::size_t size) {
    while (size != 0) {
        const ssize_t received = recv(socket, data, size, 0);
        if (received <= 0)
            return false;
        data += received;
        size -= static_cast<std::size_t>(received);
    }
    return true;
}

/// A message with the 4 bytes of its length before it, both in one call.
inline bool SendFramed(int socket, std::vector<char>& message) {
    std::uint32_t prefix = htonl(static_cast<std::uint32_t>(message.size()));
    iovec parts[] = {{&prefix, sizeof prefix}, {message.data(), message.size()}};
    msghdr header{};
    header.msg_iov = parts;
    header.msg_iovlen = 2;
    const ssize_t sent = sendmsg(socket, &header, MSG_NOSIGNAL);
    if (sent < static_cast<ssize_t>(sizeof prefix))
        return false;
    const std::size_t begun = static_cast<std::size_t>(sent) - sizeof prefix;
    return SendAll(socket, message.data() + begun, message.size() - begun);
}

inline bool ReceiveFramed(int socket, std::vector<char>& message) {
    std::uint32_t prefix = 0;
    if (!ReceiveAll(socket, reinterpret_cast<char*>(&prefix), sizeof prefix))
        return false;
    message.resize(ntohl(prefix));
    return ReceiveAll(socket, message.data(), message.size());
}

/// Answers each message with its own bytes, one connection after the other, on a thread of its own
/// and with the fewest calls: one receive and one send where the message comes in one piece.
class EchoServer {
public:
    EchoServer() : runs([this] { Run(); }) {}
    EchoServer(const EchoServer&) = delete;
    EchoServer& operator=(const EchoServer&) = delete;
    ~EchoServer() {
        listener.Stop();
        runs.join();
    }
    std::uint16_t Port() const { return listener.Port(); }

private:
    void Run() {
        std::vector<char> block(sizeof(std::uint32_t) + (1 << 20));
        for (int accepted; (accepted = listener.Accept()) >= 0;) {
            const Socket connection(accepted);
            while (Answer(connection.Get(), block))
                ;
        }
    }
    static bool Answer(int socket, std::vector<char>& block) {
        std::uint32_t prefix = 0;
        for (std::size_t size = sizeof prefix, have = 0; have < size;) {
            const ssize_t received = recv(socket, block.data() + have, block.size() - have, 0);
            if (received <= 0)
                return false;
            have += static_cast<std::size_t>(received);
            if (have < sizeof prefix)
                continue;
            std::memcpy(&prefix, block.data(), sizeof prefix);
            size = sizeof prefix + ntohl(prefix);
        }
        return SendAll(socket, block.data(), sizeof prefix + ntohl(prefix));
    }

    Listener listener;
    std::thread runs;
};

} // namespace plain

#endif
