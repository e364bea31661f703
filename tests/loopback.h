// SPDX-License-Identifier: MIT
//
// Servers and connections over the loopback for the tests of the socket families.
#ifndef PLINTH_TESTS_LOOPBACK_H
#define PLINTH_TESTS_LOOPBACK_H

#include <functional>
#include <memory>
#include <utility>

#include "psock.h"

namespace loopback {

using Stream = std::unique_ptr<psockStream>;

/// A server of one of the three styles that listens, with a function as its handler.
template <typename Style>
class Server : public Style {
public:
    template <typename... Arguments>
    explicit Server(std::function<bool(Stream)> executed, Arguments&... arguments)
        : Style(arguments...), execute(std::move(executed)) {
        this->Initialize(SystemAssigned);
    }
    bool Execute(psockStream* stream) override { return execute(Stream(stream)); }
    bool DoIdle() override { return ++idle, Style::DoIdle(); }
    using Style::Wait;

    Stream Client(const char* host = "127.0.0.1") const {
        return Stream(psockServer::Connect(host, this->GetPort()));
    }
    int idle = 0;

private:
    std::function<bool(Stream)> execute;
};

/// The two ends of a connection.
struct Pair {
    explicit Pair(const char* host = "127.0.0.1") {
        Server<psockBlockingServer> listener(
            [this](Stream stream) { return server = std::move(stream), true; });
        client = listener.Client(host);
        if (client)
            listener.Run();
    }
    Stream client, server;
};

} // namespace loopback

#endif
