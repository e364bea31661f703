// SPDX-License-Identifier: MIT
#include <sockstream.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include <Poco/Net/SocketStream.h>
#include <Poco/Net/StreamSocketImpl.h>
#include <boost/asio/ip/tcp.hpp>

#include "contest.h"
#include "plainsockets.h"

namespace {

/// The two ends of a connection.
class PlainEnds {
public:
    PlainEnds() : PlainEnds(plain::Listener()) {}

protected:
    plain::Socket connected, accepted;

private:
    explicit PlainEnds(const plain::Listener& listener)
        : connected(plain::Connect(listener.Port())), accepted(listener.Accept()) {}
};

/// An end that reads and writes with standard stream code.
template <typename Stream>
class StandardCode {
public:
    template <typename... Arguments>
    explicit StandardCode(Arguments&&... arguments)
        : stream(std::forward<Arguments>(arguments)...) {
        stream << std::nounitbuf; // Boost's would send after every <<
    }
    void Put(const std::string& line) { stream << line << '\n'; }
    bool Flush() { return static_cast<bool>(stream.flush()); }
    bool Get(std::string& line) { return static_cast<bool>(std::getline(stream, line)); }

private:
    Stream stream;
};

/// Accepts one connection and keeps it.
class KeepingServer : public psockBlockingServer {
public:
    bool Execute(psockStream* stream) override {
        accepted.reset(stream);
        return true;
    }
    std::unique_ptr<psockStream> accepted;
};

class OurStreams {
protected:
    OurStreams() {
        KeepingServer listener;
        listener.Initialize(SystemAssigned);
        connected.reset(psockServer::Connect("127.0.0.1", listener.GetPort()));
        listener.Run();
        accepted = std::move(listener.accepted);
    }
    std::unique_ptr<psockStream> connected, accepted;
};

struct Ours : OurStreams {
    StandardCode<ioSockStream> client{*connected}, server{*accepted};
};

struct PocoEnds : PlainEnds {
    static Poco::Net::StreamSocket Adopted(plain::Socket& socket) {
        return new Poco::Net::StreamSocketImpl(socket.Release());
    }
    StandardCode<Poco::Net::SocketStream> client{Adopted(connected)}, server{Adopted(accepted)};
};

class AsioContext {
protected:
    boost::asio::io_context context;
};

struct AsioEnds : AsioContext, PlainEnds {
    using Tcp = boost::asio::ip::tcp;
    Tcp::socket Adopted(plain::Socket& socket) {
        return Tcp::socket(context, Tcp::v4(), socket.Release());
    }
    StandardCode<Tcp::iostream> client{Adopted(connected)}, server{Adopted(accepted)};
};

/// The leanest stream buffer there can be.
class LeanBuffer final : public std::streambuf {
public:
    explicit LeanBuffer(int over) : socket(over) { setp(output, output + sizeof output); }

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
        if (!plain::SendAll(socket, pbase(), static_cast<std::size_t>(pptr() - pbase())))
            return -1;
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
    explicit LeanStream(int over) : std::iostream(nullptr), buffer(over) { init(&buffer); }

private:
    LeanBuffer buffer;
};

struct LeanEnds : PlainEnds {
    StandardCode<LeanStream> client{connected.Get()}, server{accepted.Get()};
};

/// What a program would write by hand.
class ByHand {
public:
    explicit ByHand(int over) : socket(over) {}
    void Put(const std::string& line) {
        Put(line.data(), line.size());
        Put("\n", 1);
    }
    bool Flush() { return plain::SendAll(socket, output, std::exchange(used, 0)); }
    bool Get(std::string& line) {
        line.clear();
        for (;;) {
            if (next == end) {
                const ssize_t received = recv(socket, input, sizeof input, 0);
                if (received <= 0)
                    return false;
                next = input;
                end = input + received;
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
    void Put(const char* data, std::size_t size) {
        while (size != 0) {
            if (used == sizeof output && !Flush())
                std::abort();
            const std::size_t part = std::min(size, sizeof output - used);
            std::memcpy(output + used, data, part);
            used += part;
            data += part;
            size -= part;
        }
    }

    int socket;
    char input[4096], output[4096];
    std::size_t used = 0;
    const char* next = input;
    const char* end = input;
};

struct EndsByHand : PlainEnds {
    ByHand client{connected.Get()}, server{accepted.Get()};
};

/// Whether a burst of lines comes through from one end to the other, in portions that the sockets
/// hold.
template <typename End>
bool Transfer(End& from, End& to, const std::string& line, std::size_t count,
              std::string& received) {
    for (std::size_t i = 0; i < count; ++i)
        from.Put(line);
    if (!from.Flush())
        return false;
    for (std::size_t i = 0; i < count; ++i)
        if (!to.Get(received) || received.size() != line.size())
            return false;
    return true;
}

template <typename Ends>
void All(const char* contender) {
    for (const std::size_t size : {64U, 256U, 1024U})
        contest::Contend({"16 KiB each way, lines of " + std::to_string(size) + " bytes"},
                         contender, [=](benchmark::State& state) {
                             Ends ends;
                             const std::size_t count = (16 << 10) / size;
                             std::string received, line(size - 1, 'x');
                             line.front() = 'a';
                             line.back() = 'z';
                             for (auto _ : state)
                                 if (!Transfer(ends.client, ends.server, line, count, received) ||
                                     !Transfer(ends.server, ends.client, line, count, received))
                                     return state.SkipWithError("a line is lost");
                             if (received != line)
                                 state.SkipWithError("another line");
                         });
}

} // namespace

void Contestants() {
    All<Ours>(contest::Plinth);
    All<PocoEnds>("POCO SocketStream");
    All<AsioEnds>("boost::asio::ip::tcp::iostream");
    All<LeanEnds>("std::iostream over recv");
    All<EndsByHand>(contest::PlainCode);
}
