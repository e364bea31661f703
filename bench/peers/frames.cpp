// SPDX-License-Identifier: MIT
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "contest.h"
#include "frameends.h"
#include "oneprocessor.h"
#include "plainsockets.h"

namespace {

using ends::Ours;

/// A message of `size` bytes that do not repeat each other.
template <typename Bytes>
void Fill(Bytes& message, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
        message.push_back(static_cast<char>(i * 31 + (i >> 8)));
}

template <typename Bytes>
bool Same(const Bytes& one, const Bytes& other) {
    return one.size() == other.size() && std::memcmp(one.data(), other.data(), one.size()) == 0;
}

/// A server of the contender's own: one connection, on a thread of its own.
template <typename End>
class OwnServer {
public:
    OwnServer() : runs([this] { Echo(End(plain::Socket(listener.Accept()))); }) {}
    ~OwnServer() { runs.join(); }
    std::uint16_t Port() const { return listener.Port(); }

    static void Echo(End end) {
        typename End::Bytes message;
        while (end.Receive(message) && end.Send(message))
            ;
    }

private:
    plain::Listener listener;
    std::thread runs;
};

template <>
class OwnServer<Ours> : public psockBlockingServer {
public:
    OwnServer() {
        Initialize(SystemAssigned);
        runs = std::thread([this] { Run(); });
    }
    ~OwnServer() override { runs.join(); }
    std::uint16_t Port() const { return static_cast<std::uint16_t>(GetPort()); }
    bool Execute(psockStream* stream) override {
        Ours end{std::unique_ptr<psockStream>(stream)};
        Ours::Bytes message;
        while (end.Receive(message) && end.Send(message))
            ;
        return true;
    }

private:
    std::thread runs;
};

template <typename End>
void Exchange(benchmark::State& state, End& end, std::size_t size) {
    typename End::Bytes request, answer;
    Fill(request, size);
    if (!end.Send(request) || !end.Receive(answer) || !Same(request, answer))
        return state.SkipWithError("another answer");
    for (auto _ : state)
        if (!end.Send(request) || !end.Receive(answer))
            return state.SkipWithError("no answer");
}

template <typename End>
void All(const char* contender) {
    for (const std::size_t size : {64U, 4096U, 1U << 20}) {
        const std::string bytes = std::to_string(size) + " bytes";
        const bool takesTurns = size <= 4096; // a message that goes in one piece
        contest::Contend({"request and answer of " + bytes}, contender,
                         [=](benchmark::State& state) {
                             const OneProcessor one(takesTurns);
                             plain::EchoServer server;
                             End end(server.Port());
                             Exchange(state, end, size);
                         });
        contest::Contend({"the same at both ends, " + bytes}, contender,
                         [=](benchmark::State& state) {
                             const OneProcessor one(takesTurns);
                             OwnServer<End> server;
                             End end(server.Port());
                             Exchange(state, end, size);
                         });
    }
    contest::Contend({"connection with one request"}, contender, [](benchmark::State& state) {
        const OneProcessor one;
        plain::EchoServer server;
        typename End::Bytes request, answer;
        Fill(request, 64);
        for (auto _ : state) {
            End end(server.Port());
            if (!end.Send(request) || !end.Receive(answer))
                return state.SkipWithError("no answer");
        }
        if (!Same(request, answer))
            state.SkipWithError("another answer");
    });
}

} // namespace

void Contestants() {
    apr_initialize();
    All<Ours>(contest::Plinth);
    All<ends::PocoStream>("POCO StreamSocket");
    All<ends::Asio>("boost::asio");
    All<ends::Gio>("GSocketConnection");
    All<ends::Apr>("apr_socket");
    All<ends::Plain>(contest::SystemCalls);
}
