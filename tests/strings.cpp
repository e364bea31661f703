// SPDX-License-Identifier: MIT
#include <dsstring.h>

#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cstdlib>
#include <locale>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "testing/hostlistener.h"
#include "tests/support.h"

static std::string allocated; // the bytes of each new[] since the last look
static int buffers = 0;       // buffers of new[] in use

// Every string buffer comes from new[]: counting here shows each allocation and each leak.
void* operator new[](std::size_t bytes) {
    ++buffers;
    allocated += std::to_string(bytes) + ";";
    return operator new(bytes);
}
void operator delete[](void* buffer) noexcept {
    buffers -= buffer != nullptr;
    operator delete(buffer);
}
void operator delete[](void* buffer, std::size_t) noexcept {
    operator delete[](buffer);
}

namespace {

std::string Allocated() {
    return std::exchange(allocated, "");
}
std::string Text(const dsBaseString& s) {
    return static_cast<const char*>(s);
}

class String : public testing::Test {
    void SetUp() override { Allocated(); }
    void TearDown() override { EXPECT_EQ(buffers, before) << "buffers have leaked"; }
    const int before = buffers;
};

TEST_F(String, IsBuiltInBuffersOfExactlyItsSize) {
    const char* const none = nullptr;
    const auto expect = [](const dsString& s, const char* text, const char* sizes) {
        EXPECT_EQ(Allocated(), sizes) << text;
        EXPECT_STREQ(s, text);
        EXPECT_EQ(s.GetLength(), std::strlen(text));
        EXPECT_EQ(s.IsEmpty(), *text == '\0');
    };
    expect(dsString(), "", "");
    expect(dsString(nullptr), "", "");
    expect(dsString(none), "", "");
    expect(dsString(""), "", "1;");
    expect(dsString("abc"), "abc", "4;");
    expect(dsString("abc", 2), "ab", "3;");
    expect(dsString("abc", 9), "abc", "4;");
    expect(dsString("abc", 0), "", "");
    expect(dsString(none, none), "", "");
    expect(dsString("a", none), "a", "2;");
    expect(dsString(none, "b"), "b", "2;");
    expect(dsString("", ""), "", "1;");
    expect(dsString("ab") + "cd", "abcd", "3;5;");
    expect(dsString(static_cast<const wchar_t*>(nullptr)), "", "");
    expect(dsString(L""), "", "");
    expect(dsString(L"ab"), "ab", "4;");
}

TEST_F(String, IsAssignedAndAppendedTo) {
    const dsString empty;
    dsString s("abc");
    const dsString& same = s;
    const auto expect = [&](const dsString& result, const char* text, const char* sizes) {
        EXPECT_EQ(Allocated(), sizes) << text;
        EXPECT_EQ(&result, &s);
        EXPECT_STREQ(s, text);
    };
    Allocated();
    expect(s = same, "abc", "");
    expect(s += nullptr, "abc", "");
    expect(s += "", "abc", "");
    expect(s += 0, "abc", "");
    expect(s += 'd', "abcd", "5;");
    expect(s += s, "abcdabcd", "9;");
    expect(s = nullptr, "", "");
    expect(s += "xy", "xy", "3;");
    expect(s = empty, "", "1;");
    expect(s += 'z', "z", "2;");
}

TEST_F(String, TakesWideTextInTheEncodingOfTheLocale) {
    const support::LocaleKept kept;
    const char* missing = nullptr;
    const auto expect = [&](const char* locale, const wchar_t* wide, const char* text) {
        if (std::setlocale(LC_ALL, locale) == nullptr)
            missing = locale;
        else
            EXPECT_STREQ(dsString(wide), text) << locale;
    };
    expect("C", L"a\u00e9", "");
    expect("C.UTF-8", L"\u00e9\u20ac\U0001f600z", "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80z");
    expect("C.UTF-8", L"a\xd800", "");
    expect("en_US.ISO-8859-1", L"\u00e9\u00ff", "\xe9\xff");
    expect("en_US.ISO-8859-1", L"a\u20ac", "");
    if (missing != nullptr)
        GTEST_SKIP() << "the host has no locale " << missing;
}

TEST_F(String, IsReadFromAndWrittenToStreams) {
    std::strstream stream;
    stream.write("ab\0c\xff", 5);
    dsString s;
    for (const char* text : {"ab", "c\xff", "", ""})
        EXPECT_STREQ(s = stream, text);
    struct : dsBaseString {
        operator const char*() const override { return nullptr; }
    } const none;
    std::ostringstream out;
    out << s << dsString("x\xff") << none << dsString();
    EXPECT_TRUE(out.good());
    EXPECT_EQ(out.str(), "x\xff");
}

TEST_F(String, ReplacesRangesAndOccurrences) {
    std::mt19937 random(13);
    const auto word = [&](std::size_t least, std::size_t most) {
        std::string letters(least + random() % (most - least + 1), 'a');
        for (char& c : letters)
            c = random() % 2 != 0 ? 'a' : 'b';
        return letters;
    };
    for (int i = 0; i < 3000; ++i) {
        const std::string old = word(0, 12), with = word(0, 3), find = word(1, 3);
        const auto low = static_cast<unsigned int>(random() % (old.size() + 1));
        const auto high = low + static_cast<unsigned int>(random() % (old.size() - low + 1));
        dsString s(old.c_str());
        std::string model = old;
        Allocated();
        const bool any = low != high || !with.empty();
        ASSERT_EQ(i % 2 != 0 ? s.Replace(low, high, with.c_str())
                             : s.Replace(high, low, with.c_str()),
                  any);
        model.replace(low, high - low, with);
        ASSERT_EQ(Allocated(), any ? std::to_string(model.size() + 1) + ";" : "");
        ASSERT_EQ(Text(s), model) << old << low << high << with;

        const int limit = static_cast<int>(random() % 4) - 1;
        int count = 0;
        s = (model = old).c_str();
        for (std::size_t at = 0; (at = model.find(find, at)) != model.npos; at += with.size()) {
            if (count == limit && limit > 0)
                break;
            model.replace(at, find.size(), with);
            ++count;
        }
        Allocated();
        ASSERT_EQ(s.ReplaceSubStr(find.c_str(), with.c_str(), limit), count);
        ASSERT_EQ(Allocated(), count != 0 ? std::to_string(model.size() + 1) + ";" : "");
        ASSERT_EQ(Text(s), model) << old << " " << find << " " << with << " " << limit;
    }
    dsString empty("");
    EXPECT_TRUE(empty.Replace(0, 0, "ab")); // the owned empty buffer is released as well
    EXPECT_TRUE(empty.Replace(2, 0, nullptr) && empty.IsEmpty());
    EXPECT_FALSE(empty.Replace(0, 0, nullptr));
}

TEST_F(String, ShowsNumbersAsTheGlobalLocaleDoes) {
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const support::LocaleKept kept;
    const std::locale classic = std::locale::classic();
    for (const std::locale& locale : {classic, std::locale(classic, new Grouping)}) {
        std::locale::global(locale);
        for (int options = ToStringDecimal; options <= ToStringHex + 1; ++options)
            for (const unsigned int value : {0u, 255u, 1234567u, 0x80000000u, UINT_MAX}) {
                const auto base = options == 1 ? std::oct : options == 2 ? std::hex : std::dec;
                std::ostringstream shown;
                shown << base << value << " " << static_cast<int>(value);
                dsString first("old"), second;
                ToString(value, first, static_cast<ToStringOptions>(options));
                ToString(static_cast<int>(value), second, static_cast<ToStringOptions>(options));
                EXPECT_EQ(Text(first) + " " + Text(second), shown.str()) << options;
            }
    }
    std::locale::global(classic);
}

TEST_F(String, TheNamedFunctionsAreTheStandardOnes) {
    char room[8] = "";
    EXPECT_STREQ(Strcat(Strcpy(room, "abc"), "de"), "abcde");
    EXPECT_STREQ(MemCpy(room + 1, "XYZ", 2), "XYde");
    EXPECT_TRUE(Strchr(room, 'd') == room + 3 && Strstr(room, "de") == room + 3);
    EXPECT_EQ(Strbytes(room), 6);
    dsString value("before");
    EXPECT_TRUE(!Getenv("PLINTH_UNSET", value) && Text(value) == "before");
    hostpicture::Announce("environment PLINTH_SET");
    setenv("PLINTH_SET", "x", 1);
    EXPECT_TRUE(Getenv("PLINTH_SET", value) && Text(value) == "x");
}

TEST_F(String, ListsComeApart) {
    dsString token;
    const auto expect = [&](const char* list, const std::vector<std::string>& tokens) {
        std::vector<std::string> taken;
        for (const char* rest = list; rest != nullptr; taken.push_back(Text(token)))
            rest = dsGetNextToken(rest, token, ',');
        EXPECT_EQ(taken, tokens) << list;
    };
    expect("a,,b,c", {"a,b", "c"});
    expect("", {""});
    expect(",a", {"", "a"});
    expect("a,", {"a"});
    expect("a,,", {"a,"});
    expect(",,,a", {",", "a"});
    EXPECT_EQ(dsGetNextToken(nullptr, token, ','), nullptr);
    EXPECT_TRUE(token.IsEmpty());
    dsMkToken(",a,,\xff", token, ',');
    EXPECT_STREQ(token, ",,a,,,,\xff");
    dsMkToken(nullptr, token, ',');
    EXPECT_STREQ(token, "");
}

} // namespace
