// SPDX-License-Identifier: MIT
#include "psockmsg.h"

#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/loopback.h"
#include "tests/scripted.h"
#include "tests/support.h"
#include "tests/vectors.h"

namespace {

class Array : public dsXArray<char> {
public:
    explicit Array(const std::string& text = "") : dsXArray<char>(nullptr) {
        Append(static_cast<unsigned int>(text.size()), text.data());
    }
    std::string Text() const { return {GetDataPtr(), GetSize()}; }
    char* ReallocElems(char* elems, unsigned int used, unsigned int count) const override {
        EXPECT_LE(count, used + 65536) << "memory ahead of what has arrived";
        return dsXArray<char>::ReallocElems(elems, used, count);
    }
};

/// The bytes of a message, by another road than the library's.
std::string Framed(const std::string& payload) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(payload.size() >> shift & 0xFF);
    return bytes + payload;
}

std::string Bytes(std::size_t count) {
    std::string text(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
        text[i] = static_cast<char>(i % 251); // a chunk is no multiple of it
    return text;
}

TEST(Messages, ComeThroughWholeHoweverTheyAreCut) {
    for (const auto& [payload, bytes] : support::Vectors("message"))
        EXPECT_EQ(Framed(support::FromHex(payload)), support::FromHex(bytes));
    const std::string payloads[] = {"", "0123456789", Bytes(10000)};
    for (const std::size_t step : {1u, 2u, 3u, 5u, 4095u, 4097u, 1u << 20}) {
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
    for (std::size_t kept = 0; kept < whole.size() * 4; ++kept) {
        SCOPED_TRACE(kept);
        Scripted in(whole.substr(0, kept / 4));
        in.endResult = kept % 2 == 0 ? -1 : 0;
        in.end = kept % 4 < 2 ? errOK : errReset;
        Array message;
        EXPECT_EQ(Read(in, message), kept % 4 == 3 ? errReset : errSocketRead);
        EXPECT_EQ(message.Text(), whole.substr(0, kept / 4).erase(0, 4));
        if (in.end == errReset) {
            const int calls = in.calls;
            EXPECT_EQ(Read(in, message), errReset);
            EXPECT_EQ(Write(in, message), errReset);
            EXPECT_EQ(in.calls, calls) << "a stream in error is left alone";
        }
    }
}

TEST(Messages, OfASocketHoldWhatArrivedBeforeItsEnd) {
    for (const unsigned int kept : {3u, 4u, 70004u, 140004u}) {
        loopback::Pair pair;
        ASSERT_EQ(Write(*pair.client, Framed(Bytes(140000)).data(), static_cast<int>(kept)), errOK);
        pair.client.reset();
        Array message("kept");
        EXPECT_EQ(Read(*pair.server, message), kept == 140004 ? errOK : errSocketRead);
        EXPECT_TRUE(message.Text() == "kept" + Bytes(kept < 4 ? 0 : kept - 4)) << kept;
    }
}

TEST(Messages, NoPrefixIsBelieved) {
    using Row = std::pair<const char*, bool>;
    for (const auto& [prefix, claimsTooMuch] : {Row{"\x7F\xFF\xFF\xFF", true},
                                                {"\0\1\0\0", true},
                                                {"\0\0\0\0", false},
                                                {"\xFF\xFF\xFF\xFF", false},
                                                {"\x80\0\0\0", false}}) {
        Scripted in(std::string(prefix, 4) + Bytes(5000));
        Array message("kept");
        EXPECT_EQ(Read(in, message), claimsTooMuch ? errSocketRead : errOK);
        EXPECT_EQ(message.Text() + in.Rest(), "kept" + Bytes(5000));
        EXPECT_EQ(in.Rest().empty(), claimsTooMuch);
    }
}

TEST(Messages, BlocksOfKnownLength) {
    for (const std::size_t step : {1u, 3u, 100u}) {
        Scripted stream("0123456789", step);
        char block[20];
        const auto read = [&](int length) {
            const errstatus status = Read(stream, block, length);
            return std::string(block, static_cast<std::size_t>(length)) + errName(status);
        };
        EXPECT_EQ(read(7), "0123456errOK");
        EXPECT_EQ(read(7), "789errSocketRead");
        stream.endResult = 0;
        EXPECT_EQ(ReadFromSocket(stream, block, 1), -1);
        stream.room = 5;
        EXPECT_EQ(Write(stream, "abcdefgh", 8), errSocketRead);
        EXPECT_EQ(stream.output, "abcde");
        EXPECT_EQ(WriteToSocket(stream, "x", 1), 0);
        stream.end = errIO;
        EXPECT_EQ(Write(stream, "x", 1), errIO);
        const int calls = stream.calls;
        EXPECT_EQ(read(7), "errIO");
        EXPECT_EQ(read(0), "errIO");
        stream.error = errOK;
        EXPECT_EQ(Write(stream, block, 0), errOK);
        EXPECT_EQ(stream.calls, calls);
    }
}

TEST(Messages, LargeOnesUnderSignalsAndThousandsOfSmallOnes) {
    loopback::Pair pair;
    std::thread echo([&] {
        for (bool more = true; more;) {
            Array message;
            more = Read(*pair.server, message) == errOK && Write(*pair.server, message) == errOK;
        }
    });
    const auto expectTrips = [&](int count, const std::string& text) {
        Array sent(text), back;
        for (int i = 0; i < count; ++i) {
            back.Clear();
            ASSERT_EQ(Write(*pair.client, sent), errOK);
            ASSERT_EQ(Read(*pair.client, back), errOK);
        }
        EXPECT_TRUE(back.Text() == text);
    };
    {
        const support::SignalStorm storm;
        expectTrips(1, Bytes(64 << 20));
    }
    // None waits for an acknowledgement, which would take 40 ms. The best of a few tries counts:
    // the host may have much else to do.
    long long best = 1000;
    for (int tries = 0; best >= 1000 && tries < 5; ++tries)
        best = support::MillisecondsOf([&] { expectTrips(1000, std::string(64, 'x')); });
    EXPECT_LT(best, 1000);
    pair.client.reset();
    echo.join();
}

TEST(Messages, APeerThatNeverReadsHoldsTheWriterUntilItGoes) {
    loopback::Pair pair;
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
