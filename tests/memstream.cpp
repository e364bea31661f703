// SPDX-License-Identifier: MIT
#include <rwstream.h>

#include <climits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "failnew.h"

namespace {

long PositionOf(rwStream& stream) {
    std::fpos<int> place(-1);
    EXPECT_EQ(stream.GetPos(place), errOK);
    return static_cast<long>(std::streamoff(place));
}

errstatus Write(rwStream& stream, std::string text) {
    return stream.Write(text.data(), static_cast<int>(text.size()));
}

/// Reads `length` bytes. What the call left behind them must be nothing new.
std::string Read(rwStream& stream, int length) {
    std::string text(static_cast<std::size_t>(length) + 1, '?');
    int count = -1;
    EXPECT_EQ(stream.Read(text.data(), length, count), errOK);
    EXPECT_EQ(text.find_first_not_of('?', static_cast<std::size_t>(count)), std::string::npos);
    return text.substr(0, static_cast<std::size_t>(count));
}

std::string Line(rwStream& stream, errstatus expected = errOK) {
    dsXArray<char> line(nullptr);
    line.Resize(7);
    EXPECT_EQ(stream.ReadLn(line, '\n'), expected);
    return std::string(line.GetDataPtr(), line.GetSize());
}

} // namespace

TEST(MemStream, EverySequenceOfOperationsAgreesWithAModel) {
    std::mt19937 random(7);
    const auto below = [&](std::size_t end) { return random() % end; };
    for (int round = 0; round < 40; ++round) {
        memStream stream;
        std::string model; // what a read from the start can see
        std::size_t position = 0;
        for (int step = 0; step < 200; ++step) {
            const std::size_t length = below(2) == 0 ? below(3) * 4096 : below(900);
            const std::size_t left = std::max(model.size(), position) - position;
            if (below(3) == 0) {
                const std::string text(length, static_cast<char>('a' + step % 26));
                ASSERT_EQ(Write(stream, text), errOK);
                if (length != 0) {
                    model.resize(std::max(model.size(), position + length + 1), ' ');
                    model.replace(position, length, text);
                }
                position += length;
            } else if (below(2) == 0) {
                const std::size_t count = std::min(length, left);
                ASSERT_EQ(Read(stream, static_cast<int>(length)), model.substr(position, count));
                position += count;
            } else if (!model.empty()) {
                position = below(model.size());
                ASSERT_EQ(stream.Seek(static_cast<long>(position), 0), errOK);
            }
            ASSERT_EQ(PositionOf(stream), static_cast<long>(position)) << round << ": " << step;
        }
    }
}

TEST(MemStream, SeeksFromEveryOriginAndNoFurtherThanTheEndOfTheData) {
    const struct {
        unsigned int written;
        long offset;
        int origin;
        long position; // from 1; or -1, and then there is no move
    } rows[] = {
        {3, 0, 0, 0},        {3, 3, 0, 3},  {3, 4, 0, -1},       {3, -1, 0, -1},
        {3, 2, 1, 3},        {3, 3, 1, -1}, {3, -1, 1, 0},       {3, -2, 1, -1},
        {3, 0, 1, 1},        {3, 0, 2, 3},  {3, 3, 2, 0},        {3, 4, 2, -1},
        {3, -1, 2, -1},      {3, 1, -1, 0}, {3, LONG_MAX, 7, 0}, {4096, 4096, 0, 4096},
        {4096, 4097, 0, -1}, {0, 0, 2, -1}, {0, 5000, 0, 5000},  {0, -1, 2, 0},
        {0, -5001, 2, 5000},
    };
    for (const auto& row : rows) {
        memStream stream;
        ASSERT_EQ(Write(stream, std::string(row.written, 'x')), errOK);
        ASSERT_EQ(stream.Seek(1, 0), errOK);
        const bool moves = row.position >= 0;
        EXPECT_EQ(stream.Seek(row.offset, row.origin), moves ? errOK : errOutOfRange);
        EXPECT_EQ(PositionOf(stream), moves ? row.position : 1)
            << row.offset << " from " << row.origin;
    }
    memStream written;
    EXPECT_EQ(Write(written, "abc"), errOK);
    for (const long far : {LONG_MAX, LONG_MIN, LONG_MAX / 2 + 3})
        for (const int origin : {0, 1, 2})
            EXPECT_EQ(written.Seek(far, origin), errOutOfRange) << far;
}

TEST(MemStream, HasABlankBehindTheDataAndNothingWhereNothingWasWritten) {
    memStream stream;
    EXPECT_EQ(stream.Seek(5000, 0), errOK);
    EXPECT_EQ(Read(stream, 10), "");
    EXPECT_EQ(Line(stream), std::string(1, '\0'));
    EXPECT_EQ(Write(stream, "x"), errOK);
    EXPECT_EQ(stream.Seek(4999, 0), errOK);
    EXPECT_EQ(Read(stream, 10), " x ");
    EXPECT_EQ(stream.Seek(0, 1) + stream.Seek(5002, 0), 2 * errOK); // where it stands already
    EXPECT_EQ(Write(stream, "a\n\nb"), errOK);
    EXPECT_EQ(stream.Seek(5001, 0), errOK);
    for (const std::string line : {" a", "", "b ", ""})
        EXPECT_EQ(Line(stream), line + '\0');

    struct Failing : memStream {
        errstatus Read(char* data, int, int& count) override {
            *data = 'z';
            count = 1;
            return left-- > 0 ? errOK : errIO;
        }
        int left = 2;
    } failing;
    EXPECT_EQ(Line(failing, errIO), std::string("zz\0", 3));
}

TEST(MemStream, AFailedWriteKeepsWhatFitted) {
    memStream stream, empty;
    failnew::after = 1;
    EXPECT_EQ(Write(stream, std::string(5000, 'x')), errFailed);
    failnew::after = 1;
    EXPECT_EQ(empty.Seek(4096, 0), errFailed);
    failnew::after = -1;
    EXPECT_EQ(PositionOf(stream) + PositionOf(empty), 0);
    EXPECT_EQ(Read(stream, 5000), std::string(4096, 'x')); // and not the page that is missing
    EXPECT_EQ(Write(stream, "y"), errOK);
    EXPECT_EQ(stream.Seek(4095, 0), errOK);
    EXPECT_EQ(Read(stream, 10), "xy ");
}

TEST(MemStream, IsMadeAndDestroyedByPlainFunctions) {
    rwStream* stream = nullptr;
    EXPECT_EQ(CreateStreamInMemory(&stream), 0);
    dsXArray<char> source(nullptr);
    source.Append(3, "abc");
    EXPECT_EQ(stream->OpenWrite("any") + stream->OpenRead(nullptr), 2 * errOK);
    EXPECT_EQ(stream->Write(source), errOK);
    EXPECT_EQ(stream->Seek(2, 2), errOK);
    EXPECT_EQ(stream->Read(source), errOK); // all of what follows, in room for all there is
    EXPECT_EQ(source.GetSize(), 4u);
    EXPECT_EQ(std::string(source.GetDataPtr(), 3), "bc ");
    EXPECT_EQ(DeleteStreamInMemory(stream) + DeleteStreamInMemory(nullptr), 0);
}
