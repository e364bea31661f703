// SPDX-License-Identifier: MIT
#include <memory>
#include <optional>
#include <string>

#include <psock.h>
#include <psockmsg.h>
#include <sockstream.h>

#include "costs.h"

namespace {

using namespace costs;

using Stream = std::unique_ptr<psockStream>;

class Server : public psockBlockingServer {
public:
    bool Execute(psockStream* stream) override {
        accepted.reset(stream);
        return true;
    }
    Stream accepted;
};

struct Pair {
    Pair() {
        Server server;
        Require(server.Initialize(SystemAssigned));
        client.reset(psockServer::Connect("127.0.0.1", server.GetPort()));
        server.Run();
        accepted = std::move(server.accepted);
    }
    Stream client, accepted;
};

void Connect() {
    Server server;
    Require(server.Initialize(SystemAssigned));
    Stream client;
    Count([&] { client.reset(), server.accepted.reset(); },
          [&] {
              client.reset(psockServer::Connect("127.0.0.1", server.GetPort()));
              Pause();
              server.Run();
              Continue();
          });
}

void Accept() {
    Server server;
    Require(server.Initialize(SystemAssigned));
    Stream client;
    Count(
        [&] {
            client.reset(), server.accepted.reset();
            client.reset(psockServer::Connect("127.0.0.1", server.GetPort()));
        },
        [&] { server.Run(); });
}

void Close() {
    std::optional<Pair> pair;
    Count([&] { pair.emplace(); }, [&] { pair->client.reset(); });
}

const Row connectionRows[] = {
    {"a connection asked for, by address", Connect},
    {"a connection waited for and accepted", Accept},
    {"a connection closed", Close},
};

template <unsigned int size>
void Send() {
    const Pair pair;
    dsXArray<char> message(nullptr), got(nullptr);
    message.Resize(size);
    Count([&] {
        Require(Write(*pair.client, message) == errOK);
        Pause();
        got.Clear();
        Require(Read(*pair.accepted, got) == errOK);
        Continue();
    });
}

/// Into an array that has held one already, as in a server's loop.
template <unsigned int size>
void Receive() {
    const Pair pair;
    dsXArray<char> message(nullptr), got(nullptr);
    message.Resize(size);
    Count(
        [&] {
            Require(Write(*pair.client, message) == errOK);
            got.Clear();
        },
        [&] { Require(Read(*pair.accepted, got) == errOK && got.GetSize() == size); });
}

void SendLine() {
    const Pair pair;
    ioSockStream out(*pair.client), in(*pair.accepted);
    std::string line(100, ' ');
    Count([&] {
        out << "a line\n" << std::flush;
        Pause();
        Require(bool(std::getline(in, line)));
        Continue();
    });
}

void ReceiveLine() {
    const Pair pair;
    ioSockStream out(*pair.client), in(*pair.accepted);
    std::string line(100, ' ');
    Count([&] { out << "a line\n" << std::flush; }, [&] { Require(bool(std::getline(in, line))); });
}

void MakeStream() {
    const Pair pair;
    Count([&] { const ioSockStream stream(*pair.client); });
}

void AskReadiness() {
    const Pair pair;
    fd_set set;
    Count([&] {
        timeval wait{0, 0};
        fds_zero(&set);
        fds_set(pair.client->getSock(), &set);
        Require(pair.client->SelectWait(nullptr, &set, nullptr, &wait) == 1);
    });
}

void Event() {
    const Pair pair;
    pair.client->Write("x", 1, false);
    Count([&] {
        zelSocketEvent event(pair.accepted.get(), zelSelectEvent::Readable);
        Require(event.Wait(-1));
    });
}

const Row messageRows[] = {
    {"a message of 64 bytes out", Send<64>},
    {"a message of 64 bytes in", Receive<64>},
    {"a message of 4 KiB out", Send<4096>},
    {"a message of 4 KiB in", Receive<4096>},
    {"a message of 32 KiB out", Send<32768>},
    {"a message of 32 KiB in", Receive<32768>},
    {"an ioSockStream made and destroyed", MakeStream},
    {"a line out by an ioSockStream", SendLine},
    {"a line in by an ioSockStream", ReceiveLine},
    {"SelectWait on one socket", AskReadiness},
    {"a zelSocketEvent made, waited for, and destroyed", Event},
};

} // namespace

const Family costs::connections{"Connections", connectionRows};
const Family costs::messages{"Messages and streams over a connection", messageRows};
