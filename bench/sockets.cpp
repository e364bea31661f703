// SPDX-License-Identifier: MIT
//
// A request and its answer over the loopback, beside send and recv with the same framing; and
// connections made, used and closed, with a look at what they leave behind. For 100,000 of these:
//
//     bench_sockets --benchmark_filter=Connections --benchmark_min_time=20
#include "psockmsg.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

namespace {

/// Answers each message with its own bytes, one connection after the other.
class EchoServer : public psockService {
public:
    EchoServer() : psockService(stop, 10) {
        Initialize(SystemAssigned);
        runs = std::thread([this] { Run(); });
    }
    ~EchoServer() override {
        stop.RequestStop();
        runs.join();
    }
    bool Execute(psockStream* stream) override {
        const std::unique_ptr<psockStream> owned(stream);
        dsXArray<char> message(nullptr);
        while (Read(*stream, message) == errOK && Write(*stream, message) == errOK)
            message.Clear();
        return false;
    }

private:
    zelService stop;
    std::thread runs;
};

void Messages(benchmark::State& state) {
    EchoServer server;
    const std::unique_ptr<psockStream> client(psockServer::Connect("127.0.0.1", server.GetPort()));
    dsXArray<char> request(nullptr), answer(nullptr);
    request.Resize(static_cast<unsigned int>(state.range(0)));
    std::fill_n(request.GetDataPtr(), request.GetSize(), 'x');
    for (auto _ : state) {
        answer.Clear();
        if (Write(*client, request) != errOK || Read(*client, answer) != errOK ||
            answer.GetSize() != request.GetSize())
            state.SkipWithError("no answer");
    }
    state.SetBytesProcessed(state.iterations() * state.range(0) * 2);
}

// The rival: what a program would write by hand.

bool ReceiveAll(int socket, char* data, std::size_t size) {
    while (size != 0) {
        const ssize_t received = recv(socket, data, size, 0);
        if (received <= 0)
            return false;
        data += received;
        size -= static_cast<std::size_t>(received);
    }
    return true;
}

bool SendAll(int socket, const char* data, std::size_t size) {
    while (size != 0) {
        const ssize_t sent = send(socket, data, size, MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

bool SendFramed(int socket, const std::vector<char>& message) {
    const std::uint32_t prefix = htonl(static_cast<std::uint32_t>(message.size()));
    return SendAll(socket, reinterpret_cast<const char*>(&prefix), sizeof prefix) &&
           SendAll(socket, message.data(), message.size());
}

bool ReceiveFramed(int socket, std::vector<char>& message) {
    std::uint32_t prefix = 0;
    if (!ReceiveAll(socket, reinterpret_cast<char*>(&prefix), sizeof prefix))
        return false;
    message.resize(ntohl(prefix));
    return ReceiveAll(socket, message.data(), message.size());
}

void RivalSendRecv(benchmark::State& state) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* plain = reinterpret_cast<sockaddr*>(&address);
    bind(listener, plain, length);
    listen(listener, 1);
    getsockname(listener, plain, &length);
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    connect(client, plain, length);
    const int server = accept(listener, nullptr, nullptr);
    const int one = 1;
    for (const int end : {client, server})
        setsockopt(end, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    std::thread runs([=] {
        std::vector<char> message;
        while (ReceiveFramed(server, message) && SendFramed(server, message))
            ;
    });
    const std::vector<char> request(static_cast<std::size_t>(state.range(0)), 'x');
    std::vector<char> answer;
    for (auto _ : state) {
        if (!SendFramed(client, request) || !ReceiveFramed(client, answer) ||
            answer.size() != request.size())
            state.SkipWithError("no answer");
    }
    shutdown(client, SHUT_RDWR);
    runs.join();
    for (const int descriptor : {client, server, listener})
        close(descriptor);
    state.SetBytesProcessed(state.iterations() * state.range(0) * 2);
}

long OpenDescriptors() {
    using Walk = std::filesystem::directory_iterator;
    return std::distance(Walk("/proc/self/fd"), Walk());
}

long ResidentKilobytes() {
    long total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

/// One connection with one message and its answer. Fails if descriptors or memory grow.
void Connections(benchmark::State& state) {
    EchoServer server;
    dsXArray<char> request(nullptr), answer(nullptr);
    request.Append(5, "hello");
    unsigned int host = 0;
    const auto serve = [&] {
        // Several addresses of the one server: a closed connection blocks its pair of ports for a
        // minute, and the ports of one pair would run out.
        const std::string address = "127.0.0." + std::to_string(1 + host++ % 8);
        const std::unique_ptr<psockStream> client(
            psockServer::Connect(address.c_str(), server.GetPort()));
        answer.Clear();
        if (!client || Write(*client, request) != errOK || Read(*client, answer) != errOK)
            state.SkipWithError("no answer");
    };
    for (int i = 0; i < 100; ++i)
        serve();
    const long descriptors = OpenDescriptors();
    const long kilobytes = ResidentKilobytes();
    for (auto _ : state)
        serve();
    const long more = OpenDescriptors() - descriptors;
    const long grown = ResidentKilobytes() - kilobytes;
    state.counters["descriptors"] = static_cast<double>(more);
    state.counters["KiB"] = static_cast<double>(grown);
    if (more > 1 || grown > 1024) // the last connection may be closing
        state.SkipWithError("the server grows");
}

BENCHMARK(RivalSendRecv)->Arg(64)->Arg(4096)->Arg(1 << 20)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(Messages)->Arg(64)->Arg(4096)->Arg(1 << 20)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(Connections)->MeasureProcessCPUTime()->UseRealTime();

} // namespace
