// SPDX-License-Identifier: MIT
#include "sockstream.h"

#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

#include "tests/loopback.h"
#include "tests/scripted.h"

namespace {

/// A buffer over a stream by a script, which notes what each call of a hook was asked for.
class Hooked : public zelIOStreamBuf {
public:
    Hooked(int size, char* buffer, std::string incoming)
        : zelStreamBufferSize(size), zelStreamBufferBase(buffer), zelIOStreamBuf(size, buffer),
          script(std::move(incoming)) {}

    Scripted script;
    std::string calls;

private:
    int Read(void* data, int length) override {
        calls += "r" + std::to_string(length) + " ";
        return script.Read(data, length, false);
    }
    int Write(const void* data, int length) override {
        calls += "w" + std::to_string(length) + " ";
        return script.Write(data, length, false);
    }
};

TEST(StreamBuffers, CallTheirHooksForWholeAreas) {
    char given[9];
    using Row = std::tuple<char*, int, const char*>;
    for (const auto& [area, size, calls] :
         {Row{nullptr, 4, "w4 w4 w2 r4 w1 r4 r4 "}, {given, 9, "w5 w5 r4 w1 r4 r4 "}}) {
        Hooked buffer(size, area, "abcdefg");
        std::iostream stream(&buffer);
        stream << "0123456789" << std::flush;
        EXPECT_EQ(buffer.in_avail(), 0);
        EXPECT_EQ(stream.get(), 'a');
        EXPECT_EQ(buffer.in_avail(), 3);
        stream << '!'; // goes out before the next read that has to wait
        std::string rest;
        stream >> rest;
        EXPECT_TRUE(stream.eof());
        EXPECT_EQ(rest + buffer.script.output, "bcdefg0123456789!");
        EXPECT_EQ(buffer.calls, calls);
        EXPECT_EQ(buffer.SetBufferSize(2), area == nullptr);
    }
}

TEST(StreamBuffers, LoseNoByteWhenTheirSizeChangesOrAHookFails) {
    Hooked buffer(4, nullptr, "abcdefghi");
    std::iostream stream(&buffer);
    EXPECT_FALSE(buffer.SetBufferSize(0));
    EXPECT_EQ(stream.get(), 'a');
    stream << "123";
    EXPECT_TRUE(buffer.SetBufferSize(2));
    std::string rest;
    stream >> rest;
    EXPECT_EQ(rest + buffer.script.output, "bcdefghi123");
    EXPECT_EQ(buffer.calls, "r4 w3 r2 r2 r2 r2 ");
    stream.clear();
    buffer.script.room = 1;
    EXPECT_FALSE(stream << "45" << std::flush);
    EXPECT_FALSE(buffer.SetBufferSize(8));
    buffer.script.room = 1;
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(buffer.script.output, "12345");
    EXPECT_TRUE(zelStreamBufferSize(7).SetBufferSize(-1)) << "the base only stores it";
}

TEST(SocketStreams, CarryStandardStreamCode) {
    loopback::Pair pair;
    std::thread answers([&] {
        ioSockStream stream(*pair.server);
        for (std::string line; std::getline(stream, line);)
            stream << line.size() << ' ' << line << std::endl;
    });
    {
        ioSockStream stream(*pair.client);
        std::string back;
        for (const std::size_t length : {0u, 4095u, 4096u, 1000000u}) {
            const std::string line(length, 'x');
            stream << line << '\n'; // no flush
            std::getline(stream, back);
            EXPECT_TRUE(back == std::to_string(length) + " " + line) << length;
        }
        stream << "last\n";
    }
    char answer[] = "       ";
    EXPECT_EQ(pair.client->Read(answer, 7, false), 7) << "the stream is gone, the socket is not";
    EXPECT_STREQ(answer, "4 last\n");
    pair.client->CloseSocket();
    answers.join();
}

TEST(SocketStreams, KeepToTheirDirection) {
    loopback::Pair pair;
    ISockSBuf in(*pair.client);
    {
        OSockSBuf out(*pair.server);
        EXPECT_EQ(out.sputn("tail", 4), 4);
        EXPECT_EQ(in.sputc('x') + out.sgetc(), EOF + EOF);
    }
    fd_set set;
    EXPECT_EQ(pair.client->SelectWait(&set, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(in.in_avail(), 0) << "what the socket holds is not known";
    EXPECT_EQ(in.sgetc(), 't');
    EXPECT_EQ(in.in_avail(), 4);
    pair.server->Write(std::string(5000, '\xFF').data(), 5000, false);
    pair.server.reset();
    char text[6000];
    EXPECT_EQ(in.sgetn(text, 5), 5);
    EXPECT_EQ(in.in_avail(), 4095);
    EXPECT_EQ(in.sgetn(text, 6000), 4999);
    EXPECT_EQ(in.sgetc(), EOF);
    EXPECT_EQ(pair.client->getErr(), errOK);

    ioSockStream lost(*pair.client);
    delete lost.rdbuf(new OSockSBuf(*pair.client)); // the stream deletes what it has in the end
    while (lost << "to nobody" << std::flush)
        ;
    EXPECT_NE(pair.client->getErr(), errOK);
}

} // namespace
