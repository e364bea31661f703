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

/// A server of one of the three styles with a function as its handler.
template <typename Style>
class Server : public Style {
public:
    template <typename... Arguments>
    explicit Server(std::function<bool(Stream)> executed, Arguments&... arguments)
        : Style(arguments...), execute(std::move(executed)) {}

    bool Execute(psockStream* stream) override { return execute(Stream(stream)); }
    bool DoIdle() override {
        ++idle;
        return Style::DoIdle();
    }
    using Style::Wait;

    int idle = 0;

private:
    std::function<bool(Stream)> execute;
};

/// The two ends of a connection.
struct Pair {
    Stream client, server;
};

inline Pair Connected(const char* host = "127.0.0.1") {
    Pair pair;
    Server<psockBlockingServer> server([&](Stream stream) {
        pair.server = std::move(stream);
        return true;
    });
    if (server.Initialize(SystemAssigned)) {
        pair.client.reset(psockServer::Connect(host, server.GetPort()));
        if (pair.client)
            server.Run();
    }
    return pair;
}

} // namespace loopback

#endif
