// SPDX-License-Identifier: MIT
//
// 100,000 lines from one end of a connection to the other: with standard stream code at both ends,
// and with send and recv over buffers of the same size, written by hand. Between the two stands the
// same standard stream code over the leanest buffer there could be, which knows nothing but its
// socket: what lies above that is the price of our buffers, what lies below is that of inserters
// and getline.
#include "sockstream.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

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

/// Lets `send` write lines to one end and `receive` read them from the other, in bursts that the
/// sockets hold: two threads would measure the scheduler. `receive` gives the length of a line.
template <typename Send, typename Flush, typename Receive>
void Transfer(benchmark::State& state, Send send, Flush flush, Receive receive) {
    const std::string line = Line(state);
    const int burst = (16 << 10) / static_cast<int>(state.range(0));
    for (auto _ : state) {
        for (int left = lineCount; left > 0; left -= burst) {
            const int lines = std::min(left, burst);
            for (int i = 0; i < lines; ++i)
                send(line);
            flush();
            for (int i = 0; i < lines; ++i)
                if (receive() != line.size())
                    return state.SkipWithError("a line is lost");
        }
    }
    state.SetItemsProcessed(state.iterations() * lineCount);
}

template <typename Stream>
void StandardCode(benchmark::State& state) {
    Ends ends;
    Stream out(*ends.client), in(*ends.server);
    std::string line;
    Transfer(
        state, [&](const std::string& text) { out << text << '\n'; }, [&] { out.flush(); },
        [&] { return std::getline(in, line) ? line.size() : 0; });
}

class LeanBuffer final : public std::streambuf {
public:
    explicit LeanBuffer(int over) : socket(over) { setp(output, output + sizeof output); }
    ~LeanBuffer() override { LeanBuffer::sync(); }

private:
    int underflow() override {
        const ssize_t received = recv(socket, input, sizeof input, 0);
        if (received <= 0)
            return traits_type::eof();
        setg(input, input, input + received);
        return traits_type::to_int_type(*input);
    }
    int overflow(int character) override {
        return sync() == 0 ? sputc(traits_type::to_char_type(character)) : traits_type::eof();
    }
    int sync() override {
        for (const char* unsent = pbase(); unsent != pptr();) {
            const auto left = static_cast<std::size_t>(pptr() - unsent);
            const ssize_t taken = send(socket, unsent, left, MSG_NOSIGNAL);
            if (taken <= 0)
                return -1;
            unsent += taken;
        }
        setp(output, output + sizeof output);
        return 0;
    }
    std::streamsize xsputn(const char* data, std::streamsize count) override {
        if (count > epptr() - pptr())
            return std::streambuf::xsputn(data, count);
        std::memcpy(pptr(), data, static_cast<std::size_t>(count));
        pbump(static_cast<int>(count));
        return count;
    }

    int socket;
    char input[4096], output[4096];
};

class LeanStream : public std::iostream {
public:
    explicit LeanStream(psockStream& over)
        : std::iostream(&buffer), buffer(static_cast<int>(over.getSock())) {}

private:
    LeanBuffer buffer;
};

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

void SendRecv(benchmark::State& state) {
    Ends ends;
    PlainWriter out(static_cast<int>(ends.client->getSock()));
    PlainReader in(static_cast<int>(ends.server->getSock()));
    std::string line;
    Transfer(
        state,
        [&](const std::string& text) {
            out.Put(text.data(), text.size());
            out.Put("\n", 1);
        },
        [&] { out.Flush(); }, [&] { return in.GetLine(line) ? line.size() : 0; });
}

void LineSizes(benchmark::internal::Benchmark* family) {
    family->Arg(64)->Arg(256)->Arg(1024);
    family->Unit(benchmark::kMillisecond);
}
BENCHMARK(SendRecv)->Apply(LineSizes);
BENCHMARK_TEMPLATE(StandardCode, LeanStream)->Apply(LineSizes);
BENCHMARK_TEMPLATE(StandardCode, ioSockStream)->Apply(LineSizes);

} // namespace
