// SPDX-License-Identifier: MIT
#include "psockmsg.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/loopback.h"
#include "tests/scripted.h"
#include "tests/support.h"

namespace {

class Array : public dsXArray<char> {
public:
    explicit Array(const std::string& text = "") : dsXArray<char>(nullptr) {
        Append(static_cast<unsigned int>(text.size()), text.data());
    }
    std::string Text() const { return {GetDataPtr(), GetSize()}; }
    char* ReallocElems(char* elems, unsigned int used, unsigned int count) const override {
        largest = std::max(largest, count);
        return dsXArray<char>::ReallocElems(elems, used, count);
    }
    mutable unsigned int largest = 0;
};

/// The bytes of a message, by another road than the library's.
std::string Framed(const std::string& payload) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(payload.size() >> shift & 0xFF);
    return bytes + payload;
}

std::string Bytes(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += static_cast<char>(i * 131 >> 3);
    return text;
}

TEST(Messages, ComeThroughWholeHoweverTheyAreCut) {
    const std::string payloads[] = {"", "0123456789", Bytes(10000)};
    for (const std::size_t step : std::array<std::size_t, 7>{1, 2, 3, 5, 4095, 4097, 1 << 20}) {
        SCOPED_TRACE(step);
        Scripted out("", step);
        for (const std::string& payload : payloads) {
            Array message(payload);
            EXPECT_EQ(Write(out, message), errOK);
        }
        EXPECT_EQ(out.output, Framed("") + Framed("0123456789") + Framed(payloads[2]));
        Scripted in(out.output, step);
        for (const std::string& payload : payloads) {
            Array message("kept");
            EXPECT_EQ(Read(in, message), errOK);
            EXPECT_EQ(message.Text(), "kept" + payload);
        }
        EXPECT_EQ(in.Rest(), "");
        if (step == 1 << 20) {
            EXPECT_EQ(out.calls, 5) << "a prefix and a payload in one call each";
            EXPECT_EQ(in.calls, 3 + 1 + 3) << "chunks of 4096";
        }
    }
}

TEST(Messages, EveryTruncationIsAnEnd) {
    const std::string whole = Framed("0123456789");
    for (std::size_t kept = 0; kept < whole.size(); ++kept) {
        for (const int result : {-1, 0}) {
            for (const errstatus recorded : {errOK, errReset}) {
                SCOPED_TRACE(testing::Message() << kept << " " << result << " " << recorded);
                Scripted in(whole.substr(0, kept));
                in.endResult = result;
                in.end = recorded;
                Array message;
                EXPECT_EQ(Read(in, message),
                          result == 0 && recorded != errOK ? recorded : errSocketRead);
                EXPECT_EQ(message.Text(), kept > 4 ? whole.substr(4, kept - 4) : "");
                const int calls = in.calls;
                if (recorded != errOK) {
                    EXPECT_EQ(Read(in, message), recorded);
                    EXPECT_EQ(Write(in, message), recorded);
                    EXPECT_EQ(in.calls, calls) << "a stream in error is left alone";
                }
            }
        }
    }
}

TEST(Messages, NoPrefixIsBelieved) {
    for (const char* prefix : {"\x7F\xFF\xFF\xFF", "\0\1\0\0"}) {
        Scripted in(std::string(prefix, 4) + Bytes(5000));
        Array message("kept");
        EXPECT_EQ(Read(in, message), errSocketRead);
        EXPECT_EQ(message.Text(), "kept" + Bytes(5000));
        EXPECT_LE(message.largest, 65536U);
    }
    for (const char* prefix : {"\0\0\0\0", "\xFF\xFF\xFF\xFF", "\x80\0\0\0"}) {
        Scripted in(std::string(prefix, 4) + "next");
        Array message("kept");
        EXPECT_EQ(Read(in, message), errOK);
        EXPECT_EQ(message.Text(), "kept");
        EXPECT_EQ(in.Rest(), "next");
    }
}

TEST(Messages, BlocksOfKnownLength) {
    for (const std::size_t step : std::array<std::size_t, 3>{1, 3, 100}) {
        Scripted stream("0123456789", step);
        char block[20];
        int length = 7;
        EXPECT_EQ(Read(stream, block, length), errOK);
        EXPECT_EQ(std::string(block, 7) + std::to_string(length), "01234567");
        length = 7;
        EXPECT_EQ(Read(stream, block, length), errSocketRead);
        EXPECT_EQ(std::string(block, 3) + std::to_string(length), "7893");
        EXPECT_EQ(ReadFromSocket(stream, block, 1), -1);
        stream.endResult = 0;
        EXPECT_EQ(ReadFromSocket(stream, block, 1), -1);
        stream.room = 5;
        EXPECT_EQ(Write(stream, "abcdefgh", 8), errSocketRead);
        EXPECT_EQ(stream.output, "abcde");
        EXPECT_EQ(WriteToSocket(stream, "x", 1), 0);
        stream.end = errIO;
        EXPECT_EQ(Write(stream, "x", 1), errIO);
        length = 7;
        EXPECT_EQ(Read(stream, block, length), errIO);
        EXPECT_EQ(length, 0);
        const int calls = stream.calls;
        length = 0;
        EXPECT_EQ(Read(stream, block, length), errIO);
        stream.error = errOK;
        EXPECT_EQ(Write(stream, block, 0), errOK);
        EXPECT_EQ(stream.calls, calls);
    }
}

/// Answers each message on the server's end with its own payload, until the client's end closes.
class Echo {
public:
    ~Echo() {
        pair.client.reset();
        runs.join();
    }
    loopback::Pair pair = loopback::Connected();
    psockStream& client = *pair.client;

private:
    std::thread runs{[this] {
        for (bool more = true; more;) {
            Array message;
            more = Read(*pair.server, message) == errOK && Write(*pair.server, message) == errOK;
        }
    }};
};

TEST(Messages, SixtyFourMegabytesUnderSignals) {
    Echo echo;
    const support::SignalStorm storm;
    Array sent, back;
    sent.Resize(64 << 20);
    for (unsigned int i = 0; i < sent.GetSize(); i += 997)
        sent[i] = static_cast<char>(i);
    ASSERT_EQ(Write(echo.client, sent), errOK);
    ASSERT_EQ(Read(echo.client, back), errOK);
    ASSERT_EQ(back.GetSize(), sent.GetSize());
    EXPECT_EQ(std::memcmp(back.GetDataPtr(), sent.GetDataPtr(), sent.GetSize()), 0);
}

TEST(Messages, NoRoundTripWaitsForAnAcknowledgement) {
    Echo echo;
    Array sent(std::string(64, 'x')), back;
    const auto thousandTrips = [&] {
        for (int i = 0; i < 1000; ++i) {
            ASSERT_EQ(Write(echo.client, sent), errOK);
            back.Clear();
            ASSERT_EQ(Read(echo.client, back), errOK);
        }
    };
    long long best = 1000;
    for (int tries = 0; best >= 1000 && tries < 5; ++tries) // the host may have much else to do
        best = support::MillisecondsOf(thousandTrips);
    EXPECT_LT(best, 1000);
    EXPECT_EQ(back.Text(), sent.Text());
}

TEST(Messages, APeerThatNeverReadsHoldsTheWriterUntilItGoes) {
    loopback::Pair pair = loopback::Connected();
    std::thread writer([&] {
        Array large(Bytes(1 << 20));
        while (Write(*pair.client, large) == errOK)
            ;
    });
    for (int ready = 1; ready != 0;) { // until nothing more has gone out for a while
        timeval wait{0, 200000};
        fd_set set;
        ready = fds_select(pair.client->getSock(), nullptr, &set, nullptr, &wait);
        std::this_thread::yield();
    }
    pair.server.reset();
    writer.join();
    EXPECT_NE(pair.client->getErr(), errOK);
}

} // namespace
