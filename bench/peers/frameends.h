// SPDX-License-Identifier: MIT
//
// The contenders of the row of framed messages: each is one end of a connection, made by connecting
// to a port of the loopback or of a connection that was accepted, and sends and receives messages
// of 4 bytes of length and a payload. The payload is received where the caller wants it.
#ifndef PLINTH_BENCH_PEERS_FRAMEENDS_H
#define PLINTH_BENCH_PEERS_FRAMEENDS_H

#include <psockmsg.h>

#include <array>
#include <memory>
#include <utility>
#include <vector>

#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Net/StreamSocketImpl.h>
#include <apr_general.h>
#include <apr_network_io.h>
#include <apr_portable.h>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <gio/gio.h>

#include "plainsockets.h"

namespace ends {

class Ours {
public:
    /// Has an array, and is none: what derives from one is asked about every movement.
    struct Bytes {
        dsXArray<char> array{nullptr};
        void push_back(char byte) { array += byte; }
        std::size_t size() const { return array.GetSize(); }
        const char* data() const { return array.GetDataPtr(); }
    };
    explicit Ours(std::uint16_t port) : stream(psockServer::Connect("127.0.0.1", port)) {}
    explicit Ours(std::unique_ptr<psockStream> accepted) : stream(std::move(accepted)) {}
    bool Send(Bytes& message) { return Write(*stream, message.array) == errOK; }
    bool Receive(Bytes& message) {
        message.array.Clear();
        return Read(*stream, message.array) == errOK;
    }

private:
    std::unique_ptr<psockStream> stream;
};

/// The 4 bytes before a message.
struct Prefix {
    std::uint32_t bytes = 0;
    Prefix() = default;
    explicit Prefix(const std::vector<char>& message)
        : bytes(htonl(static_cast<std::uint32_t>(message.size()))) {}
    std::size_t Length() const { return ntohl(bytes); }
};

/// Receives a message: `receive` is given room for so many bytes, and gives how many have come,
/// none at the end of the connection.
template <typename ReceiveSome>
bool ReceiveMessage(std::vector<char>& message, ReceiveSome receive) {
    const auto receiveAll = [&receive](char* data, std::size_t size) {
        while (size != 0) {
            const std::size_t received = receive(data, size);
            if (received == 0)
                return false;
            data += received;
            size -= received;
        }
        return true;
    };
    Prefix prefix;
    if (!receiveAll(reinterpret_cast<char*>(&prefix.bytes), sizeof prefix.bytes))
        return false;
    message.resize(prefix.Length());
    return receiveAll(message.data(), message.size());
}

class Plain {
public:
    using Bytes = std::vector<char>;
    explicit Plain(std::uint16_t port) : socket(plain::Connect(port)) {}
    explicit Plain(plain::Socket accepted) : socket(std::move(accepted)) {}
    bool Send(Bytes& message) { return plain::SendFramed(socket.Get(), message); }
    bool Receive(Bytes& message) { return plain::ReceiveFramed(socket.Get(), message); }

private:
    plain::Socket socket;
};

class PocoStream {
public:
    using Bytes = std::vector<char>;
    explicit PocoStream(std::uint16_t port) : socket(Poco::Net::SocketAddress("127.0.0.1", port)) {
        socket.setNoDelay(true);
    }
    explicit PocoStream(plain::Socket accepted)
        : socket(new Poco::Net::StreamSocketImpl(accepted.Release())) {}
    bool Send(Bytes& message) {
        Prefix prefix(message);
        const Poco::Net::SocketBufVec parts = {
            Poco::Net::Socket::makeBuffer(&prefix.bytes, sizeof prefix.bytes),
            Poco::Net::Socket::makeBuffer(message.data(), message.size())};
        const int all = static_cast<int>(sizeof prefix.bytes + message.size());
        // A blocking socket sends everything.
        return socket.sendBytes(parts) == all;
    }
    bool Receive(Bytes& message) {
        return ReceiveMessage(message, [this](char* data, std::size_t size) {
            const int received = socket.receiveBytes(data, static_cast<int>(size));
            return static_cast<std::size_t>(received > 0 ? received : 0);
        });
    }

private:
    Poco::Net::StreamSocket socket;
};

class Asio {
public:
    using Bytes = std::vector<char>;
    using Tcp = boost::asio::ip::tcp;
    explicit Asio(std::uint16_t port) : socket(Context()) {
        socket.connect({boost::asio::ip::make_address("127.0.0.1"), port});
        socket.set_option(Tcp::no_delay(true));
    }
    explicit Asio(plain::Socket accepted) : socket(Context(), Tcp::v4(), accepted.Release()) {}
    bool Send(Bytes& message) {
        const Prefix prefix(message);
        const std::array<boost::asio::const_buffer, 2> parts = {
            boost::asio::buffer(&prefix.bytes, sizeof prefix.bytes), boost::asio::buffer(message)};
        boost::system::error_code failure;
        boost::asio::write(socket, parts, failure);
        return !failure;
    }
    bool Receive(Bytes& message) {
        Prefix prefix;
        boost::system::error_code failure;
        boost::asio::read(socket, boost::asio::buffer(&prefix.bytes, sizeof prefix.bytes), failure);
        if (failure)
            return false;
        message.resize(prefix.Length());
        boost::asio::read(socket, boost::asio::buffer(message), failure);
        return !failure;
    }

private:
    static boost::asio::io_context& Context() {
        static boost::asio::io_context context;
        return context;
    }
    Tcp::socket socket;
};

class Gio {
public:
    using Bytes = std::vector<char>;
    explicit Gio(std::uint16_t port) {
        GSocketClient* client = g_socket_client_new();
        connection = g_socket_client_connect_to_host(client, "127.0.0.1", port, nullptr, nullptr);
        g_object_unref(client);
        if (connection == nullptr)
            std::abort();
        plain::SendWithoutDelay(g_socket_get_fd(g_socket_connection_get_socket(connection)));
    }
    explicit Gio(plain::Socket accepted) {
        GSocket* socket = g_socket_new_from_fd(accepted.Release(), nullptr);
        connection = g_socket_connection_factory_create_connection(socket);
        g_object_unref(socket);
    }
    Gio(const Gio&) = delete;
    Gio& operator=(const Gio&) = delete;
    ~Gio() { g_object_unref(connection); }
    bool Send(Bytes& message) {
        const Prefix prefix(message);
        GOutputVector parts[] = {{&prefix.bytes, sizeof prefix.bytes},
                                 {message.data(), message.size()}};
        return g_output_stream_writev_all(g_io_stream_get_output_stream(G_IO_STREAM(connection)),
                                          parts, 2, nullptr, nullptr, nullptr) != FALSE;
    }
    bool Receive(Bytes& message) {
        return ReceiveMessage(message, [this](char* data, std::size_t size) {
            gsize received = 0;
            g_input_stream_read_all(g_io_stream_get_input_stream(G_IO_STREAM(connection)), data,
                                    size, &received, nullptr, nullptr);
            return received;
        });
    }

private:
    GSocketConnection* connection;
};

class Apr {
public:
    using Bytes = std::vector<char>;
    explicit Apr(std::uint16_t port) : Apr() {
        apr_sockaddr_t* address = nullptr;
        Must(apr_sockaddr_info_get(&address, "127.0.0.1", APR_INET, port, 0, pool));
        Must(apr_socket_create(&socket, APR_INET, SOCK_STREAM, APR_PROTO_TCP, pool));
        Must(apr_socket_opt_set(socket, APR_TCP_NODELAY, 1));
        Must(apr_socket_connect(socket, address));
    }
    explicit Apr(plain::Socket accepted) : Apr() {
        int descriptor = accepted.Release();
        Must(apr_os_sock_put(&socket, &descriptor, pool));
    }
    Apr(const Apr&) = delete;
    Apr& operator=(const Apr&) = delete;
    ~Apr() {
        apr_socket_close(socket);
        apr_pool_destroy(pool);
    }
    bool Send(Bytes& message) {
        Prefix prefix(message);
        iovec parts[] = {{&prefix.bytes, sizeof prefix.bytes}, {message.data(), message.size()}};
        apr_size_t sent = 0;
        if (apr_socket_sendv(socket, parts, 2, &sent) != APR_SUCCESS || sent < sizeof prefix.bytes)
            return false;
        for (std::size_t done = sent - sizeof prefix.bytes; done < message.size(); done += sent) {
            sent = message.size() - done;
            if (apr_socket_send(socket, message.data() + done, &sent) != APR_SUCCESS)
                return false;
        }
        return true;
    }
    bool Receive(Bytes& message) {
        return ReceiveMessage(message, [this](char* data, std::size_t size) {
            apr_size_t received = size;
            return apr_socket_recv(socket, data, &received) == APR_SUCCESS ? received : 0;
        });
    }

private:
    Apr() { Must(apr_pool_create(&pool, nullptr)); }
    static void Must(apr_status_t status) {
        if (status != APR_SUCCESS)
            std::abort();
    }
    apr_pool_t* pool = nullptr;
    apr_socket_t* socket = nullptr;
};

} // namespace ends

#endif
