// SPDX-License-Identifier: MIT
//
// 100,000 lines from one end of a connection to the other: with standard stream code at both ends,
// and with send and recv over buffers of the same size, written by hand.
#include "sockstream.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include <sys/socket.h>

#include <benchmark/benchmark.h>

namespace {

constexpr int lineCount = 100000;

/// A line that takes as many bytes as the case says, with its end.
std::string Line(const benchmark::State& state) {
    return std::string(static_cast<std::size_t>(state.range(0)) - 1, 'x');
}

/// The two ends of a connection.
class Ends : public psockBlockingServer {
public:
    Ends() {
        Initialize(SystemAssigned);
        client.reset(Connect("127.0.0.1", GetPort()));
        Run();
    }
    bool Execute(psockStream* stream) override {
        server.reset(stream);
        return true;
    }
    std::unique_ptr<psockStream> client, server;
};

void SockStream(benchmark::State& state) {
    Ends ends;
    const std::string text = Line(state);
    ioSockStream in(*ends.server);
    for (auto _ : state) {
        std::thread sender([&] {
            ioSockStream out(*ends.client);
            for (int i = 0; i < lineCount; ++i)
                out << text << '\n';
        });
        std::string line;
        for (int i = 0; i < lineCount; ++i)
            if (!std::getline(in, line) || line.size() != text.size())
                state.SkipWithError("a line is lost");
        sender.join();
    }
    state.SetItemsProcessed(state.iterations() * lineCount);
}

class PlainWriter {
public:
    explicit PlainWriter(int to) : socket(to) {}
    void Put(const char* data, std::size_t size) {
        while (size != 0) {
            if (used == sizeof buffer)
                Flush();
            const std::size_t part = std::min(size, sizeof buffer - used);
            std::memcpy(buffer + used, data, part);
            used += part;
            data += part;
            size -= part;
        }
    }
    void Flush() {
        for (std::size_t sent = 0; sent < used;) {
            const ssize_t taken = send(socket, buffer + sent, used - sent, MSG_NOSIGNAL);
            if (taken <= 0)
                break;
            sent += static_cast<std::size_t>(taken);
        }
        used = 0;
    }

private:
    int socket;
    std::size_t used = 0;
    char buffer[4096];
};

class PlainReader {
public:
    explicit PlainReader(int from) : socket(from) {}
    bool GetLine(std::string& line) {
        line.clear();
        for (;;) {
            if (next == end) {
                const ssize_t received = recv(socket, buffer, sizeof buffer, 0);
                if (received <= 0)
                    return false;
                next = buffer;
                end = buffer + received;
            }
            const auto size = static_cast<std::size_t>(end - next);
            if (const void* found = std::memchr(next, '\n', size)) {
                const auto* stop = static_cast<const char*>(found);
                line.append(next, stop);
                next = stop + 1;
                return true;
            }
            line.append(next, end);
            next = end;
        }
    }

private:
    int socket;
    char buffer[4096];
    const char* next = buffer;
    const char* end = buffer;
};

void RivalSendRecv(benchmark::State& state) {
    Ends ends;
    const std::string text = Line(state);
    PlainReader in(static_cast<int>(ends.server->getSock()));
    for (auto _ : state) {
        std::thread sender([&] {
            PlainWriter out(static_cast<int>(ends.client->getSock()));
            for (int i = 0; i < lineCount; ++i) {
                out.Put(text.data(), text.size());
                out.Put("\n", 1);
            }
            out.Flush();
        });
        std::string line;
        for (int i = 0; i < lineCount; ++i)
            if (!in.GetLine(line) || line.size() != text.size())
                state.SkipWithError("a line is lost");
        sender.join();
    }
    state.SetItemsProcessed(state.iterations() * lineCount);
}

BENCHMARK(RivalSendRecv)
    ->Arg(64)
    ->Arg(256)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(SockStream)
    ->Arg(64)
    ->Arg(256)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
