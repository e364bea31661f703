// SPDX-License-Identifier: MIT
#include <bdtstream.h>
#include <dsstring.h>

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <clocale>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/countnew.h"
#include "tests/support.h"
#include "tests/vectors.h"

namespace {

using support::FromHex;
using support::Vectors;
using namespace std::string_literals;

constexpr int shortRead = bdtStream::eofbit | bdtStream::failbit;
constexpr bool bigHost = std::endian::native == std::endian::big;

/// One value as the page names it: a type and a literal.
struct Value {
    std::string type, literal;

    explicit Value(const std::string& named) {
        std::istringstream in(named);
        std::getline(in >> type >> std::ws, literal);
    }
    bool IsNull() const { return literal == "null"; }
    /// The bytes of a text or a block.
    std::string Bytes() const {
        const bool quoted = literal.starts_with('"');
        return quoted ? literal.substr(1, literal.size() - 2) : IsNull() ? "" : FromHex(literal);
    }

    /// Calls `use` with the number, in its type; false for what is none.
    template <typename Use>
    bool AsNumber(Use use) const {
        const auto is = [&](const char* name, auto zero) {
            if (type == name)
                use(static_cast<decltype(zero)>(std::stod(literal))); // holds all that are there
            return type == name;
        };
        const unsigned short zero = 0;
        return is("char", char()) || is("uchar", static_cast<unsigned char>(zero)) ||
               is("short", short()) || is("ushort", zero) || is("character", zero) ||
               is("int", 0) || is("uint", 0u) || is("long", 0l) || is("ulong", 0ul) ||
               is("float", 0.0f) || is("double", 0.0);
    }

    void Write(bdtOStream& out) const {
        out.multibyte(type == "character");
        if (AsNumber([&](auto number) { out << number; }))
            return;
        std::string bytes = Bytes();
        std::vector<wchar_t> wide(bytes.size() + 1);
        if (type == "block")
            out.Write(bytes.data(), static_cast<int>(bytes.size()));
        else if (type == "text")
            out << (IsNull() ? nullptr : bytes.c_str());
        else if (std::mbstowcs(wide.data(), bytes.c_str(), wide.size()) <= bytes.size())
            out << (IsNull() ? nullptr : wide.data());
    }

    enum Outcome { Same, Untouched, Wrong };
    /// Reads a value of this type and tells what became of the target.
    Outcome Read(bdtIStream& in) const {
        in.multibyte(type == "character");
        Outcome outcome = Wrong;
        const auto tell = [&](const auto& target, const auto& wanted, const auto& before) {
            outcome = target == wanted ? Same : target == before ? Untouched : Wrong;
        };
        const bool isNumber = AsNumber([&](auto number) {
            const auto before = static_cast<decltype(number)>(number == 0);
            auto target = before;
            in >> target;
            tell(target, number, before);
        });
        if (type == "block") {
            char *data = nullptr, before = 0;
            int length = 0;
            in.Read(data = &before, length);
            const std::unique_ptr<char[]> owned(data);
            if (data == nullptr)
                return Untouched;
            tell(std::string(data, static_cast<std::size_t>(length)), Bytes(), "");
        } else if (!isNumber) {
            dsString target("before");
            in >> target;
            tell(std::string(target), Bytes(), "before");
        }
        return outcome;
    }
};

std::string Written(const std::function<void(bdtOStream&)>& write, int portable, int state = 0) {
    std::stringbuf buffer;
    bdtOStream out(&buffer, portable);
    write(out);
    EXPECT_EQ(out.rdstate(), state);
    return buffer.str();
}

class BinaryStream : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr); }
    const support::LocaleKept kept;
};

// Both directions, with all of the bytes and with every number of them that is too small.
TEST_F(BinaryStream, HasTheBytesOnThePageAndSurvivesEveryCut) {
    for (const char* name : {"portable", bigHost ? "raw-big-endian" : "raw-little-endian"})
        for (const auto& [left, right] : Vectors(name)) {
            SCOPED_TRACE(name + (": " + left));
            const int portable = std::string(name) == "portable";
            const Value value(left);
            const std::string bytes = FromHex(right);
            for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
                const bool whole = cut == bytes.size();
                std::stringbuf buffer(bytes.substr(0, cut));
                bdtIStream in(&buffer, portable);
                EXPECT_EQ(value.Read(in), whole ? Value::Same : Value::Untouched) << cut;
                EXPECT_EQ(in.rdstate(), whole ? 0 : shortRead) << cut;
                EXPECT_EQ(buffer.in_avail(), 0) << cut;

                std::string taken(cut, '\0');
                std::strstreambuf tight(taken.data(), std::streamsize(cut), taken.data());
                bdtOStream out(&tight, portable);
                value.Write(out);
                EXPECT_EQ(out.rdstate(), whole ? 0 : int(bdtStream::badbit)) << cut;
                EXPECT_TRUE(out.good() == whole && out.fail() != whole && in.fail() != whole);
                EXPECT_EQ(taken, bytes.substr(0, cut));
            }
            value.AsNumber([&](auto number) {
                if constexpr (requires { bdtBase::Length(number, 0); }) {
                    const bool framed = value.type == "character" && portable;
                    EXPECT_EQ(bdtBase::Length(number, portable), framed ? 4 : bytes.size());
                }
            });
        }
    EXPECT_EQ(bdtBase::Length("Grüße", 1) + bdtBase::Length(static_cast<char*>(nullptr), 1), 15u);
    EXPECT_EQ(bdtBase::Length(L"€", 1) + bdtBase::Length(static_cast<wchar_t*>(nullptr), 1), 12u);
    EXPECT_EQ(bdtBase::Length(L'€', 1, 1), 7u);
    EXPECT_EQ(bdtBase::Length(L'€', 1, 0) + bdtBase::Length(L'€', 0, 1), 6u);
}

TEST_F(BinaryStream, ReportsWhatDoesNotFitAndGoesOn) {
    std::stringbuf buffer(FromHex("00 01 11 70 00 01 23 45 00 00 00 07 41"));
    bdtIOStream both(&buffer, true);
    short number = 0;
    unsigned short character = 0;
    int behind = 0;
    both >> number;
    EXPECT_EQ(number, 4464);
    EXPECT_EQ(both.rdstate(), bdtStream::failbit);
    bdtIStream(&buffer, 1) >> character;
    EXPECT_EQ(character, 0x2345);
    both >> behind >> behind;
    EXPECT_EQ(behind, 7) << "a failed stream reads on, and a cut value leaves its target";
    EXPECT_TRUE(both.eof() && both.fail() && !both.bad() && !both.good() && !both);
    EXPECT_EQ(both.rdbuf(nullptr), &buffer);
    both << 'x' << flush;
    EXPECT_EQ(both.rdstate(), 7) << "both directions share one state";

    bdtIOStream nowhere;
    EXPECT_TRUE(nowhere.good());
    nowhere >> behind;
    EXPECT_EQ(behind, 7);
    EXPECT_EQ(nowhere.rdstate(), shortRead);
    std::stringbuf later;
    EXPECT_EQ(nowhere.rdbuf(&later), nullptr);
    nowhere << behind;
    EXPECT_EQ(later.str(), FromHex("00 00 00 07")) << "portable";
    const bool isLong = sizeof(long) > 4;
    const auto written = [](auto value) {
        return Written([=](bdtOStream& out) { out << value; }, 1, isLong ? bdtStream::failbit : 0);
    };
    EXPECT_EQ(written(LONG_MAX - 1), FromHex(isLong ? "FF FF FF FE" : "7F FF FF FE"));
    EXPECT_EQ(written(ULONG_MAX - 1), FromHex("FF FF FF FE"));
}

TEST_F(BinaryStream, NeverBelievesALength) {
    using Row = std::tuple<const char*, const char*, int>;
    for (const auto& [value, bytes, state] :
         {Row{"text \"x\"", "7F FF FF FF", shortRead},
          {"block 00", "7F FF FF FF", shortRead},
          {"block 00", "FF FF FF FF", bdtStream::failbit},
          {"character 65", "7F FF FF FF", shortRead},
          {"character 65", "00 00 00 14", bdtStream::failbit},
          {"character 65", "00 00 00 00", bdtStream::failbit},
          {"character 65", "FF FF FF FF", bdtStream::failbit},
          {"character 65", "00 00 00 02", bdtStream::failbit},
          {"character 65", "00 00 00 01 C3", bdtStream::failbit},
          {"character 65", "00 00 00 04 F0 9F 98 80", bdtStream::failbit}}) {
        SCOPED_TRACE(value + (": "s + bytes));
        std::stringbuf buffer(FromHex(bytes) + std::string(20, 'A'));
        bdtIStream in(&buffer, 1);
        const long before = countnew::bytes;
        EXPECT_EQ(Value(value).Read(in), Value::Untouched);
        EXPECT_LT(countnew::bytes, before + 70000);
        EXPECT_EQ(in.rdstate(), state);
    }
    // What does arrive is joined from any number of pieces.
    for (const std::size_t size : {255u, 256u, 65536u, 65537u, 131072u, 200000u}) {
        std::string text(size, 'x');
        for (std::size_t i = 0; i < size; i += 7)
            text[i] = static_cast<char>('a' + i % 23);
        for (const char* const type : {"text", "block"}) {
            const Value value(type + (" \"" + text + '"'));
            std::stringbuf whole(Written([&](bdtOStream& out) { value.Write(out); }, 1));
            std::stringbuf cut(whole.str().substr(0, size + 3));
            bdtIStream in(&whole, 1), cutIn(&cut, 1);
            EXPECT_TRUE(value.Read(in) == Value::Same && in.good()) << type << size;
            EXPECT_EQ(value.Read(cutIn), Value::Untouched) << type << size;
            EXPECT_EQ(cutIn.rdstate(), shortRead);
        }
    }
    bdtOStream out(nullptr, 1);
    const long before = countnew::bytes;
    out << "plain"
        << "Grüße" << 1.0 << 7;
    EXPECT_EQ(countnew::bytes, before) << "text with the same bytes in both forms needs no block";
}

// Text by way of the locale, and what it cannot express, in either direction.
TEST_F(BinaryStream, ConvertsTextOfTheLocale) {
    const auto read = [](std::string text, int portable, int state) {
        std::stringbuf buffer;
        bdtIOStream both(&buffer, portable != 0);
        both.Write(text.data(), static_cast<int>(text.size()));
        dsString target("before");
        both >> target;
        EXPECT_EQ(both.rdstate(), state) << testing::PrintToString(text);
        return std::string(target);
    };
    const auto written = [](auto value, int portable = 1, int state = 0) {
        return Written([=](bdtOStream& out) { out.multibyte(1), out << value; }, portable, state);
    };
    const unsigned short character = 233;
    EXPECT_EQ(read({'a', '\xFF', '\0', 'b'}, 1, 0), "a\xEF\xBF\xBD") << "up to the first NUL";
    EXPECT_EQ(written("\xE9"), FromHex("FF FF FF FF")) << "null, without a bit";
    EXPECT_EQ(written(L"\xD800", 1, bdtStream::failbit), "");

    ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
    EXPECT_EQ(written(L"\u00E9", 1, bdtStream::failbit), "");
    EXPECT_EQ(written(character, 1, bdtStream::failbit), "");
    EXPECT_EQ(written("\xE9", 0).substr(4), "\xE9") << "raw text goes out as it is";
    EXPECT_EQ(read("\xE9", 0, bdtStream::failbit), "before");
    EXPECT_EQ(read("\xC3\xA9", 1, bdtStream::failbit), "before");

    if (std::setlocale(LC_ALL, "en_US.ISO-8859-1") == nullptr)
        GTEST_SKIP() << "this host has no locale en_US.ISO-8859-1";
    EXPECT_EQ(written("\xE9"), FromHex("00 00 00 02 C3 A9"));
    EXPECT_EQ(written(L"\u00E9"), FromHex("00 00 00 03 C3 A9 00"));
    EXPECT_EQ(bdtBase::Length("\xE9", 1) + bdtBase::Length(L"\u00E9", 1), 11u);
    EXPECT_EQ(read("\xC3\xA9", 1, 0), "\xE9");
    EXPECT_EQ(read("\xE2\x82\xAC", 1, bdtStream::failbit), "before");
    EXPECT_EQ(read("\xE9\x41", 0, 0), "\xE9\x41");
}

TEST(BinaryBase, SwapsFromTheFirstObjectOn) {
    char word[] = "12345678";
    EXPECT_EQ(bdtBase::IsByteOrderOK(), bigHost);
    bdtBase::Swap8(word);
    EXPECT_STREQ(word, "87654321") << "without a probe, on any host";
    std::thread threads[4];
    for (std::thread& thread : threads)
        thread = std::thread([] { EXPECT_EQ(Written([](auto& o) { o << 1; }, 1)[3], '\1'); });
    for (std::thread& thread : threads)
        thread.join();
    bdtBase::Swap4(word);
    EXPECT_STREQ(word, bigHost ? "87654321" : "56784321");
}

} // namespace
