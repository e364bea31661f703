// SPDX-License-Identifier: MIT
#include "sockstream.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/loopback.h"

namespace {

/// A buffer whose hooks work on strings and note what each call was asked for.
class Hooked : public zelIOStreamBuf {
public:
    Hooked(int size, char* buffer)
        : zelStreamBufferSize(size), zelStreamBufferBase(buffer), zelIOStreamBuf(size, buffer) {}
    using zelOStreamBuf::flush;

    std::string incoming, sent, calls;
    int limit = 100;

private:
    int Read(void* data, int length) override {
        calls += "r" + std::to_string(length) + " ";
        const auto count = std::min(static_cast<std::size_t>(length), incoming.size());
        std::memcpy(data, incoming.data(), count);
        incoming.erase(0, count);
        return static_cast<int>(count);
    }
    int Write(const void* data, int length) override {
        calls += "w" + std::to_string(length) + " ";
        const int count = std::min(length, limit);
        sent.append(static_cast<const char*>(data), static_cast<std::size_t>(count));
        return count;
    }
};

TEST(StreamBuffers, CallTheirHooksForWholeAreas) {
    char given[9];
    struct {
        char* buffer;
        int size;
        const char* calls;
    } const rows[] = {{nullptr, 4, "w4 w4 w2 r4 w1 r4 r4 "}, {given, 9, "w5 w5 r4 w1 r4 r4 "}};
    for (const auto& row : rows) {
        Hooked buffer(row.size, row.buffer);
        buffer.incoming = "abcdefgh";
        std::iostream stream(&buffer);
        stream << "0123456789" << std::flush;
        std::string text(4, ' ');
        EXPECT_EQ(buffer.in_avail(), 0);
        EXPECT_EQ(stream.get(), 'a');
        EXPECT_EQ(buffer.in_avail(), 3);
        stream << '!'; // goes out before the next read that has to wait
        stream.read(text.data(), 4);
        EXPECT_EQ(text, "bcde");
        EXPECT_EQ(stream.get() + stream.get() + stream.get(), 'f' + 'g' + 'h');
        EXPECT_EQ(stream.get(), EOF);
        EXPECT_EQ(buffer.sent, "0123456789!");
        EXPECT_EQ(buffer.calls, row.calls);
        EXPECT_EQ(buffer.SetBufferSize(2), row.buffer == nullptr);
    }
}

TEST(StreamBuffers, ChangeTheirSizeWithoutLosingAByte) {
    Hooked buffer(4, nullptr);
    buffer.incoming = "abcdefghi";
    std::iostream stream(&buffer);
    EXPECT_FALSE(buffer.SetBufferSize(0));
    stream << "123";
    EXPECT_EQ(stream.get(), 'a');
    stream << "456";
    EXPECT_TRUE(buffer.SetBufferSize(2));
    EXPECT_EQ(buffer.sent, "123456");
    std::string rest;
    stream >> rest;
    EXPECT_EQ(rest, "bcdefghi");
    stream.clear();

    // What a hook does not take is kept and told, and does not go round in circles.
    buffer.limit = 1;
    stream << "78" << std::flush;
    EXPECT_TRUE(stream.good());
    buffer.limit = 0;
    stream << "9" << std::flush;
    EXPECT_TRUE(stream.bad());
    EXPECT_FALSE(buffer.SetBufferSize(8));
    buffer.limit = 100;
    EXPECT_EQ(buffer.flush(), 0);
    EXPECT_EQ(buffer.sent, "123456789");

    zelStreamBufferSize size(7);
    EXPECT_TRUE(size.SetBufferSize(-1)) << "the base only stores it";
}

TEST(SocketStreams, CarryStandardStreamCode) {
    loopback::Pair pair = loopback::Connected();
    std::thread answers([&] {
        ioSockStream stream(*pair.server);
        for (std::string line; std::getline(stream, line);)
            stream << line.size() << ' ' << line << std::endl;
    });
    {
        ioSockStream stream(*pair.client);
        std::size_t size = 0;
        std::string back;
        for (const std::size_t length :
             std::array<std::size_t, 6>{0, 1, 4095, 4096, 4097, 100000}) {
            const std::string line(length, 'x');
            stream << line << '\n'; // no flush
            stream >> size;
            stream.get();
            std::getline(stream, back);
            EXPECT_EQ(size, length);
            EXPECT_EQ(back, line);
        }
        stream << "last\n";
    }
    char answer[7];
    EXPECT_EQ(pair.client->Read(answer, 7, false), 7) << "the stream is gone, the socket is not";
    EXPECT_EQ(std::string(answer, 7), "4 last\n");
    pair.client->CloseSocket();
    answers.join();
}

TEST(SocketStreams, KeepToTheirDirection) {
    loopback::Pair pair = loopback::Connected();
    ISockSBuf in(*pair.client);
    EXPECT_EQ(in.sputc('x'), EOF);
    {
        OSockSBuf out(*pair.server);
        EXPECT_EQ(out.sgetc(), EOF);
        EXPECT_EQ(out.sputn("tail", 4), 4);
        EXPECT_EQ(pair.client->Exception(), false);
    }
    fd_set set;
    EXPECT_EQ(pair.client->SelectWait(&set, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(in.in_avail(), 0) << "what the socket holds is not known";
    EXPECT_EQ(in.sgetc(), 't');
    EXPECT_EQ(in.in_avail(), 4);
    pair.server.reset();
    char text[10];
    EXPECT_EQ(in.sgetn(text, 10), 4);
    EXPECT_EQ(in.sgetc(), EOF);
    EXPECT_EQ(pair.client->getErr(), errOK);

    auto* first = new IOSockSBuf(*pair.client);
    {
        ioSockStream stream(*pair.client);
        delete stream.rdbuf(first);
    }
    std::iostream lost(new OSockSBuf(*pair.client));
    while (lost << "to nobody" << std::flush)
        ;
    EXPECT_NE(pair.client->getErr(), errOK);
    delete lost.rdbuf();
}

} // namespace
