// SPDX-License-Identifier: MIT
//
// Clients of servers that speak in messages: good ones, and those that are slow, silent, lying or
// vanish; and what three servers are asked, with what they must answer.
#ifndef PLINTH_TORTURE_CLIENTS_H
#define PLINTH_TORTURE_CLIENTS_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <psock.h>
#include <psockmsg.h>

#include "examples/fileserv/protocol.h"
#include "examples/lines/record.h"

namespace clients {

struct Exchange {
    std::string request, answer; // the payloads of two messages
};

inline std::string Payload(dsXArray<char>& message) {
    return {message.GetDataPtr(), message.GetSize()};
}

inline std::string Framed(const std::string& payload) {
    const auto size = static_cast<std::uint32_t>(payload.size());
    std::string bytes;
    for (unsigned shift = 32; shift != 0; shift -= 8)
        bytes += static_cast<char>(size >> (shift - 8));
    return bytes + payload;
}

inline std::string Letters(std::mt19937& random, std::size_t size) {
    std::string text(size, 'x');
    for (char& letter : text)
        letter = static_cast<char>('a' + random() % 26);
    return text;
}

inline Exchange Echo(std::mt19937& random) {
    const std::string text =
        Letters(random, random() % 8 == 0 ? random() % 300000 : random() % 3000);
    return {text, text};
}

inline Exchange Line(std::mt19937& random) {
    const std::string text = Letters(random, random() % 200);
    Request request;
    Answer answer;
    request.number = answer.number = static_cast<int>(random() % 100000);
    request.length = static_cast<int>(text.size());
    request.text = text.c_str();
    Describe(text.c_str(), answer);
    dsXArray<char> message(nullptr);
    Exchange exchange;
    Encode(request, message);
    exchange.request = Payload(message);
    Encode(answer, message);
    exchange.answer = Payload(message);
    return exchange;
}

inline constexpr char servedText[] = "what the file holds\n";

/// Asks for the checksum of the one file that is there, or for one that is not.
inline Exchange File(std::mt19937& random) {
    fileserv::Request request;
    request.operation = fileserv::Checksum;
    const bool there = random() % 2 == 0;
    request.path = there ? "folder|file" : "folder|" + Letters(random, 20);
    dsXArray<char> message(nullptr);
    Exchange exchange;
    fileserv::EncodeRequest(request, message);
    exchange.request = Payload(message);
    {
        Encoder answer(message);
        answer.out << static_cast<int>(there ? errOK : errNotFound);
        if (there) {
            unsigned int sum = 0, parity = 0, count = 0;
            for (const char* at = servedText; *at != '\0'; ++at, ++count) {
                sum += static_cast<unsigned char>(*at);
                parity ^= static_cast<unsigned char>(*at);
            }
            fileserv::PutLong(answer.out, count) << (count << 16 | (sum & 0xFF) << 8 | parity);
        }
    }
    exchange.answer = Payload(message);
    return exchange;
}

using Dialect = std::function<Exchange(std::mt19937&)>;

/// A plain socket to the server.
class Plain {
public:
    explicit Plain(int port) : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval patience{60, 0};
        setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        connected = connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    Plain(const Plain&) = delete;
    Plain& operator=(const Plain&) = delete;
    ~Plain() { close(socket); }

    bool Send(const std::string& bytes) const {
        return connected && send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
                                static_cast<ssize_t>(bytes.size());
    }
    std::string Receive(std::size_t count) const {
        std::string bytes(count, '\0');
        std::size_t got = 0;
        for (ssize_t part = 1; part > 0 && got < count; got += static_cast<std::size_t>(part))
            part = std::max<ssize_t>(0, recv(socket, bytes.data() + got, count - got, 0));
        bytes.resize(got);
        return bytes;
    }
    /// Goes without a word: the other side gets a reset.
    void Vanish() const {
        const linger now{1, 0};
        setsockopt(socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    }

private:
    const int socket;
    bool connected;
};

enum Kind { Good, Slow, Mute, HalfAndReset, HalfAndEnd, Lie, Flood, kinds };
inline constexpr const char* kindNames[] = {"good", "slow",  "mute", "reset",
                                            "half", "lying", "deaf"};

inline void Pause(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

/// Some exchanges by the library's own client side. Empty if all is well, or what is not.
inline std::string BeGood(int port, const Dialect& dialect, std::mt19937& random) {
    const std::unique_ptr<psockStream> server(psockServer::Connect("localhost", port));
    if (!server)
        return "no connection: " + std::string(errName(errMapError()));
    const timeval patience{60, 0};
    setsockopt(static_cast<int>(server->getSock()), SOL_SOCKET, SO_RCVTIMEO, &patience,
               sizeof patience);
    for (int i = 0; i < 3; ++i) {
        const Exchange exchange = dialect(random);
        dsXArray<char> message(nullptr);
        message.Append(static_cast<unsigned int>(exchange.request.size()), exchange.request.data());
        errstatus status = Write(*server, message);
        message.Clear();
        if (status == errOK)
            status = Read(*server, message);
        if (status != errOK)
            return "no answer: " + std::string(errName(status));
        if (Payload(message) != exchange.answer)
            return "a wrong answer";
    }
    return "";
}

/// A byte every 10 milliseconds, and right all the same.
inline std::string BeSlow(int port, const Dialect& dialect, std::mt19937& random) {
    const Plain client(port);
    Exchange exchange = dialect(random);
    while (exchange.request.size() > 60)
        exchange = dialect(random);
    for (const char byte : Framed(exchange.request)) {
        if (!client.Send(std::string(1, byte)))
            return "a slow one was cut off";
        Pause(10);
    }
    const std::string answer = Framed(exchange.answer), got = client.Receive(answer.size());
    if (got == answer)
        return "";
    return answer.starts_with(got) ? "a slow one was cut off" : "a wrong answer to a slow one";
}

inline std::string Be(Kind kind, int port, const Dialect& dialect, std::mt19937& random) {
    if (kind == Good)
        return BeGood(port, dialect, random);
    if (kind == Slow)
        return BeSlow(port, dialect, random);
    const Plain client(port);
    const std::string whole = Framed(dialect(random).request);
    const std::string half = whole.substr(0, random() % whole.size());
    switch (kind) {
    case Mute:
        Pause(3000);
        if (random() % 2 == 0)
            client.Vanish();
        break;
    case HalfAndReset:
        client.Send(random() % 2 == 0 ? half : whole + half);
        client.Vanish();
        break;
    case HalfAndEnd:
        client.Send(half);
        break;
    case Lie: {
        const char* const prefixes[] = {"\x7f\xff\xff\xff", "\x40", "\xff\xff\xff\xff",
                                        "\x80\x01\x02\x03"};
        client.Send(prefixes[random() % 4] + half);
        if (random() % 2 == 0)
            client.Vanish();
        break;
    }
    default: // asks for much, and takes nothing of it
        client.Send(Framed("#3000000"));
        client.Send(Framed("#3000000"));
        Pause(500);
        client.Vanish();
    }
    return "";
}

} // namespace clients

#endif
