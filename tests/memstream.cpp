// SPDX-License-Identifier: MIT
#include <rwstream.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "failnew.h"

namespace {

long PositionOf(memStream& stream) {
    std::fpos<int> place(-1);
    EXPECT_EQ(stream.GetPos(place), errOK);
    EXPECT_EQ(place.state(), 0);
    return static_cast<long>(std::streamoff(place));
}

errstatus Write(memStream& stream, std::string text) {
    return stream.Write(text.data(), static_cast<int>(text.size()));
}

/// Reads `length` bytes and tells what the call left behind them, which must be nothing new.
std::string Read(memStream& stream, int length) {
    std::string text(static_cast<std::size_t>(length) + 1, '?');
    int count = -1;
    EXPECT_EQ(stream.Read(text.data(), length, count), errOK);
    EXPECT_EQ(text.find_first_not_of('?', static_cast<std::size_t>(count)), std::string::npos);
    text.resize(static_cast<std::size_t>(count));
    return text;
}

std::string Line(memStream& stream) {
    dsXArray<char> line(nullptr);
    line.Resize(7);
    EXPECT_EQ(stream.ReadLn(line, '\n'), errOK);
    return std::string(line.GetDataPtr(), line.GetSize());
}

} // namespace

TEST(MemStream, EverySequenceOfOperationsAgreesWithAModel) {
    std::mt19937 random(7);
    const auto below = [&](long end) { return static_cast<long>(random()) % end; };
    for (int round = 0; round < 40; ++round) {
        memStream stream;
        std::string model; // what a read from the start can see
        long position = 0;
        for (int step = 0; step < 200; ++step) {
            const auto limit = static_cast<long>(model.size());
            switch (below(4)) {
            case 0: {
                const long length = below(3) == 0 ? below(3) * 4096 : below(900);
                const std::string text(static_cast<std::size_t>(length), char('a' + step % 26));
                ASSERT_EQ(Write(stream, text), errOK);
                if (length == 0)
                    break;
                model.resize(static_cast<std::size_t>(std::max(limit, position + length + 1)), ' ');
                model.replace(static_cast<std::size_t>(position), text.size(), text);
                position += length;
                break;
            }
            case 1: {
                const int length = static_cast<int>(below(2) == 0 ? below(9000) : below(9));
                const long count = std::max(0L, std::min<long>(length, limit - position));
                ASSERT_EQ(Read(stream, length),
                          count == 0 ? ""
                                     : model.substr(static_cast<std::size_t>(position),
                                                    static_cast<std::size_t>(count)));
                position += count;
                break;
            }
            case 2: {
                const int origin = static_cast<int>(below(4));
                const long offset = below(limit + 20) - (origin == 1 ? position : 5);
                long target = 0;
                if (origin < 3)
                    target = origin == 0   ? offset
                             : origin == 1 ? position + offset
                                           : limit - offset - 1;
                const bool same = origin < 2 && target == position;
                const bool inside = target >= 0 && (limit == 0 || target < limit);
                ASSERT_EQ(stream.Seek(offset, origin), same || inside ? errOK : errOutOfRange);
                if (same || inside)
                    position = target;
                break;
            }
            default: {
                dsXArray<char> all(nullptr);
                ASSERT_EQ(stream.Read(all), errOK);
                ASSERT_EQ(all.GetSize(), model.size());
                const auto seen = static_cast<std::size_t>(std::max(0L, limit - position));
                ASSERT_EQ(std::string(all.GetDataPtr(), seen),
                          seen == 0 ? "" : model.substr(static_cast<std::size_t>(position)));
                position += static_cast<long>(seen);
            }
            }
            ASSERT_EQ(PositionOf(stream), position) << "round " << round << ", step " << step;
        }
    }
}

TEST(MemStream, SeeksFromEveryOriginAndNoFurtherThanTheEndOfTheData) {
    const struct {
        int length; // of what was written
        int from;   // the position before
        long offset;
        int origin;
        errstatus status;
        long position;
    } rows[] = {
        {3, 0, 0, 0, errOK, 0},
        {3, 0, 3, 0, errOK, 3},
        {3, 1, 4, 0, errOutOfRange, 1},
        {3, 1, -1, 0, errOutOfRange, 1},
        {3, 1, 2, 1, errOK, 3},
        {3, 1, 3, 1, errOutOfRange, 1},
        {3, 1, -1, 1, errOK, 0},
        {3, 1, -2, 1, errOutOfRange, 1},
        {3, 1, 0, 2, errOK, 3},
        {3, 1, 3, 2, errOK, 0},
        {3, 1, 4, 2, errOutOfRange, 1},
        {3, 1, -1, 2, errOutOfRange, 1},
        {3, 1, LONG_MAX, 7, errOK, 0},
        {3, 1, LONG_MAX, 0, errOutOfRange, 1},
        {3, 1, LONG_MAX, 1, errOutOfRange, 1},
        {3, 1, LONG_MIN, 1, errOutOfRange, 1},
        {3, 1, LONG_MIN, 2, errOutOfRange, 1},
        {3, 1, LONG_MAX / 2 + 3, 0, errOutOfRange, 1},
        {4096, 0, 4096, 0, errOK, 4096},
        {4096, 0, 4097, 0, errOutOfRange, 0},
        {0, 0, 0, 2, errOutOfRange, 0},
        {0, 0, 5000, 0, errOK, 5000},
        {0, 0, -1, 2, errOK, 0},
        {0, 0, -5001, 2, errOK, 5000},
    };
    for (const auto& row : rows) {
        memStream stream;
        ASSERT_EQ(Write(stream, std::string(static_cast<std::size_t>(row.length), 'x')), errOK);
        ASSERT_EQ(stream.Seek(row.from, 0), errOK);
        EXPECT_EQ(stream.Seek(row.offset, row.origin), row.status)
            << row.offset << " from " << row.origin;
        EXPECT_EQ(PositionOf(stream), row.position) << row.offset << " from " << row.origin;
    }
    // Where reading has come to the byte behind the last place to seek to.
    memStream stream;
    EXPECT_EQ(Write(stream, "abc"), errOK);
    EXPECT_EQ(stream.Seek(0, 0), errOK);
    EXPECT_EQ(Read(stream, 10), "abc ");
    EXPECT_EQ(stream.Seek(4, 0), errOK);
    EXPECT_EQ(stream.Seek(0, 1), errOK);
    EXPECT_EQ(Write(stream, "d"), errOK);
    EXPECT_EQ(stream.Seek(0, 0), errOK);
    EXPECT_EQ(Read(stream, 10), "abc d ");
}

TEST(MemStream, HasNothingToReadWhereNothingWasWritten) {
    memStream stream;
    EXPECT_EQ(stream.Seek(5000, 0), errOK);
    EXPECT_EQ(Read(stream, 10), "");
    EXPECT_EQ(Line(stream), std::string(1, '\0'));
    EXPECT_EQ(PositionOf(stream), 5000);
    EXPECT_EQ(Write(stream, "x"), errOK);
    EXPECT_EQ(stream.Seek(4090, 0), errOK);
    EXPECT_EQ(Read(stream, 5000), std::string(910, ' ') + "x ");
    int count = -1;
    EXPECT_EQ(stream.Read(nullptr, -3, count), errOK);
    EXPECT_EQ(count, 0);
}

TEST(MemStream, ReadsLinesOfAnyRecordStreamWithANulBehind) {
    memStream stream;
    EXPECT_EQ(stream.OpenWrite("any"), errOK);
    EXPECT_EQ(Write(stream, "a\n\nb"), errOK);
    EXPECT_EQ(stream.OpenRead(nullptr), errOK);
    EXPECT_EQ(stream.Seek(0, 0), errOK);
    for (const std::string line : {"a", "", "b ", ""})
        EXPECT_EQ(Line(stream), line + '\0');

    /// Delivers two bytes and then fails.
    struct Failing : memStream {
        errstatus Read(char* data, int, int& count) override {
            *data = 'z';
            count = 1;
            return left-- > 0 ? errOK : errIO;
        }
        int left = 2;
    } failing;
    dsXArray<char> line(nullptr);
    EXPECT_EQ(failing.ReadLn(line, '\n'), errIO);
    EXPECT_EQ(std::string(line.GetDataPtr(), line.GetSize()), std::string("zz\0", 3));
}

TEST(MemStream, AFailedWriteKeepsWhatFitted) {
    memStream stream;
    failnew::after = 1;
    EXPECT_EQ(Write(stream, std::string(5000, 'x')), errFailed);
    EXPECT_EQ(PositionOf(stream), 0);
    EXPECT_EQ(Read(stream, 5000), std::string(4096, 'x')); // and not the page that is missing
    EXPECT_EQ(Read(stream, 1), "");
    failnew::after = -1;
    EXPECT_EQ(Write(stream, "y"), errOK);
    EXPECT_EQ(stream.Seek(4095, 0), errOK);
    EXPECT_EQ(Read(stream, 10), "xy ");
    memStream empty;
    failnew::after = 1;
    EXPECT_EQ(empty.Seek(4096, 0), errFailed);
    EXPECT_EQ(Write(empty, ""), errOK); // the page that was added has stayed
    failnew::after = -1;
    EXPECT_EQ(PositionOf(empty), 0);
}

TEST(MemStream, IsMadeAndDestroyedByPlainFunctions) {
    rwStream* stream = nullptr;
    EXPECT_EQ(CreateStreamInMemory(&stream), 0);
    ASSERT_NE(stream, nullptr);
    dsXArray<char> source(nullptr);
    source.Append(3, "abc");
    EXPECT_EQ(stream->Write(source), errOK);
    EXPECT_EQ(stream->Seek(2, 2), errOK);
    char byte = 0;
    int count = 0;
    EXPECT_EQ(stream->Read(&byte, 1, count), errOK);
    EXPECT_EQ(byte, 'b');
    EXPECT_EQ(DeleteStreamInMemory(stream), 0);
    EXPECT_EQ(DeleteStreamInMemory(nullptr), 0);
}
