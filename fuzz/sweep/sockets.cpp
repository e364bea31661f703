// SPDX-License-Identifier: MIT
#include <cerrno>
#include <memory>
#include <string>

#include <dsdatcol.h>
#include <psock.h>
#include <psockmsg.h>
#include <sockstream.h>

#include "outside/quillmarsh/sockets.h"
#include "outside/varnholt/service.h"
#include "outside/varnholt/sockets.h"
#include "sweep.h"

namespace {

using namespace sweep;
using Stream = std::unique_ptr<psockStream>;

template <typename Style>
struct Server : Style {
    using Style::Style;
    bool Execute(psockStream* given) override {
        ++executed;
        stream.reset(given);
        return true;
    }
    bool DoIdle() override { return ++idle == 3 || Style::DoIdle(); }
    Stream stream;
    int executed = 0, idle = 0;
};

struct Pair {
    Pair() {
        Server<psockBlockingServer> server;
        if (server.Initialize(SystemAssigned)) {
            client.reset(psockServer::Connect("127.0.0.1", server.GetPort()));
            if (client != nullptr)
                server.Run();
            accepted = std::move(server.stream);
        }
        Expect(client != nullptr && accepted != nullptr, "a pair for the start");
    }
    Stream client, accepted;
};

void Serve() {
    std::unique_ptr<Server<psockBlockingServer>> server;
    Try([&] { server = std::make_unique<Server<psockBlockingServer>>(); });
    if (server == nullptr)
        return;
    const bool listens = Try(false, [&] { return server->Initialize(SystemAssigned); });
    Expect(listens || !MustWork(), "it listens");
    if (!listens)
        return;
    int port = 0;
    Try([&] { port = server->GetPort(); });
    Expect(port != 0 || !MustWork(), "its port is known");
    const Stream client(psockServer::Connect("127.0.0.1", server->GetPort()));
    Expect(client != nullptr, "a client gets through");
    if (client == nullptr)
        return;
    Try([&] { server->Run(); });
    Expect(server->executed == 1 || !MustWork(), "it is served");
    if (server->executed == 0)
        server->Run();
    Expect(server->executed == 1, "it can still be served");
    Expect(server->stream != nullptr || MemoryFails(), "it has its stream");
    Try([&] { server.reset(); });
}

void Connect() {
    Server<psockBlockingServer> server;
    server.Initialize(SystemAssigned);
    for (const char* const host : {"127.0.0.1", "localhost"}) {
        Stream client;
        errno = 0;
        Try([&] { client.reset(psockServer::Connect(host, server.GetPort())); });
        Expect(client != nullptr || !MustWork(), "it connects");
        Try([&] { client.reset(); });
    }
    const Stream next(psockServer::Connect("127.0.0.1", server.GetPort()));
    Expect(next != nullptr, "the next one succeeds");
}

void OtherServers() {
    Server<psockNonBlockingServer> server;
    server.Initialize(SystemAssigned);
    Stream client;
    Try([&] { Expect(!server.IsConnectionReceived() || Hit(), "nobody is there yet"); });
    Try([&] { server.Run(); });
    Expect(server.executed == 0, "nobody to serve");
    client.reset(psockServer::Connect("127.0.0.1", server.GetPort()));
    Try([&] { server.Run(); });
    Expect(server.executed == 1 || !MustWork(), "it is served");
    zelService service;
    Server<psockService> third(service, 1);
    Expect(third.Initialize(SystemAssigned), "it listens");
    Try([&] { third.Run(); });
    Expect(third.idle == 3 || !MustWork(), "it looks about");
}

void StreamBytes() {
    Pair pair;
    if (pair.client == nullptr || pair.accepted == nullptr)
        return;
    int sent = 0, got = 0;
    char part[8] = "";
    Try([&] { sent = pair.client->Write("abc", 3, false); });
    Expect(sent == 3 || sent == 1 || !MustWork(), "it is sent");
    Expect(sent > 0 || (sent == -1 && pair.client->getErr() != errOK), "or says why not");
    if (sent > 0) {
        Try([&] { got = pair.accepted->Read(part, 3, false); });
        Expect(got > 0 ? std::string("abc").starts_with(
                             std::string(part, static_cast<std::size_t>(got)))
                       : got == -1 && !MustWork() && pair.accepted->getErr() != errOK,
               "it arrives, or it says why not");
    }
    fd_set set;
    fds_zero(&set);
    fds_set(pair.client->getSock(), &set);
    timeval wait{0, 1000};
    int ready = -2;
    Try([&] { ready = pair.client->SelectWait(nullptr, &set, nullptr, &wait); });
    Expect(ready == 1 || !MustWork(), "it could take more");
    Try([&] { ready = pair.client->Select(nullptr, &set, nullptr, &wait); });
    Expect(ready <= 1, "a count");
    Try([&] { Expect(!pair.client->Exception() || Hit(), "no exception"); });
    Try([&] { pair.client->CloseSocket(); });
    Expect(pair.client->getSock() == static_cast<unsigned>(-1), "closed in any case");
    Expect(pair.client->Write("abc", 3, false) == -1, "and closed to callers");
    char more[4096];
    while (pair.accepted->Read(more, 8, false) > 0)
        continue;
}

void SameMachine() {
    Pair pair;
    if (pair.client == nullptr || pair.accepted == nullptr)
        return;
    psockStream::Initialize(), psockStream::Shutdown();
    bool same = false;
    Try([&] { same = pair.client->IsOnTheSameMachine(); });
    Expect(same || !MustWork(), "it is");
}

void Events() {
    Pair pair;
    if (pair.client == nullptr || pair.accepted == nullptr)
        return;
    std::unique_ptr<zelSocketEvent> event;
    Try([&] {
        event = std::make_unique<zelSocketEvent>(pair.accepted.get(), zelSelectEvent::Readable);
    });
    Expect(event != nullptr || MemoryFails(), "an event");
    if (event == nullptr)
        return;
    Expect(zelSocketEvent::cast(event.get())->GetSockStream() == pair.accepted.get(),
           "of this one");
    bool fired = true;
    Try([&] { fired = event->Wait(1); });
    Expect(!fired || !MustWork(), "nothing yet");
    pair.client->Write("a", 1, false);
    zelEvent* const both[] = {nullptr, event.get()};
    int which = -1;
    Try([&] { which = zelEvent::WaitAny(both, 2, 2000); });
    Expect(which == 1 || !MustWork(), "it fires");
    zelSocketEvent same(pair.accepted.get(), zelSelectEvent::Readable);
    std::unique_ptr<zelEventSet> set;
    Try([&] { set = std::make_unique<zelEventSet>(); });
    Expect(set != nullptr || MemoryFails(), "a set");
    if (set != nullptr) {
        bool one = false, other = false, gone = false;
        zelEvent* first = nullptr;
        Try([&] { one = set->Add(event.get()); });
        Try([&] { other = set->Add(&same); });
        Expect((one && other) || !MustWork(), "both are in it");
        Try([&] { first = set->Wait(2000); });
        Expect(first != nullptr || !MustWork(), "it fires there as well");
        Try([&] { gone = set->Remove(event.get()); });
        Expect(gone == one, "it can be removed if it is there");
        Expect(!other || set->Wait(2000) == &same || !MustWork(), "the other one stays");
        Expect(set->GetDescriptor() >= 0 || !MustWork(), "a descriptor");
        Try([&] { set.reset(); });
    }
    Try([&] { event.reset(); });
}

const std::string text(10000, 'x');

void Messages() {
    Pair pair;
    if (pair.client == nullptr || pair.accepted == nullptr)
        return;
    dsXArray<char> sent(nullptr), got(nullptr);
    sent.Append(static_cast<unsigned>(text.size()), text.data());
    errstatus status = errNone;
    Try([&] { status = Write(*pair.client, sent); });
    Expect(status == errOK || !MustWork(), "it is sent");
    Expect(status != errNone || MemoryFails(), "or says why not");
    const bool whole = status == errOK;
    pair.client->CloseSocket();
    status = errNone;
    Try([&] { status = Read(*pair.accepted, got); });
    Expect(status == errOK || !MustWork(), "it is read");
    Expect(status != errOK || (whole && got.GetSize() == text.size()), "whole, if it says so");
    Expect(std::string(got.GetDataPtr(), got.GetSize()).find_first_not_of('x') == std::string::npos,
           "nothing else");
}

void Blocks() {
    Pair pair;
    if (pair.client == nullptr || pair.accepted == nullptr)
        return;
    errstatus status = errNone;
    Try([&] { status = Write(*pair.client, "abcdef", 6); });
    Expect(status == errOK || !MustWork(), "it is sent");
    int length = 3;
    char part[8] = "";
    const bool sent = status == errOK;
    if (!sent)
        pair.client->CloseSocket();
    Try([&] { status = Read(*pair.accepted, part, length); });
    Expect(status == errOK ? length == 3 : !MustWork() && length < 3, "as long as it says");
    Expect(std::string("abcdef").starts_with(std::string(part, static_cast<std::size_t>(length))),
           "its bytes");
    if (sent) {
        int got = 0;
        Try([&] { got = ReadFromSocket(*pair.accepted, part, 3); });
        Expect((got > 0 && got <= 3) || !MustWork(), "more of it");
    }
    int put = 0;
    Try([&] { put = WriteToSocket(*pair.accepted, "x", 1); });
    Expect(put == 1 || !MustWork(), "and back");
}

void StandardStreams() {
    Pair pair;
    if (pair.client == nullptr || pair.accepted == nullptr)
        return;
    bool written = false;
    Try([&] {
        ioSockStream stream(*pair.client);
        written = bool(stream << text << '\n' << std::flush);
    });
    Expect(written || !MustWork(), "it is written");
    pair.client->CloseSocket();
    std::string line;
    bool whole = false;
    Try([&] {
        ISockSBuf buffer(*pair.accepted);
        buffer.SetBufferSize(1000);
        Expect(buffer.in_avail() >= -1 && buffer.sputc('x') == EOF, "it only reads");
        std::istream stream(&buffer);
        whole = std::getline(stream, line) && !stream.eof();
    });
    Expect(whole ? line == text : !MustWork(), "it is read");
    Try([&] {
        OSockSBuf buffer(*pair.accepted);
        buffer.SetBufferSize(1000);
        std::ostream(&buffer) << "abc";
        Expect(buffer.in_avail() <= 0 && buffer.sgetc() == EOF, "it only writes");
    });
    Pair other;
    if (other.client == nullptr || other.accepted == nullptr)
        return;
    other.client->Write("abc", 3, false);
    bool got = false;
    Try([&] {
        IOSockSBuf buffer(*other.accepted);
        buffer.SetBufferSize(1000);
        Expect(buffer.in_avail() <= 3, "no more than there is");
        got = buffer.sgetc() == 'a';
    });
    Expect(got || !MustWork(), "and one for both");
}

const Scenario scenarios[] = {
    {"serve", "psockServer::* psockBlockingServer::*", Serve},
    {"connect", "psockServer::Connect zel_*node*info", Connect},
    {"other servers", "psockNonBlockingServer::* psockService::*", OtherServers},
    {"bytes over a stream", "psockStream::* fds_*", StreamBytes},
    {"on the same machine", "psockStream::IsOnTheSameMachine", SameMachine},
    {"events", "zelSocketEvent::* zelSelectEvent::* zelBaseEvent::* zelEventSet::*", Events},
    {"messages", "Read Write", Messages},
    {"blocks", "Read Write ReadFromSocket WriteToSocket", Blocks},
    {"standard streams",
     "ioSockStream::* ?SockSBuf::* IOSockSBuf::* zel?StreamBuf::* zelIOStreamBuf::* "
     "zelStreamBuffer*::*",
     StandardStreams},
};

} // namespace

namespace sweep {
const Family sockets{"sockets", scenarios};
}
