// SPDX-License-Identifier: MIT
#include <dsstring.h>

#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cstdlib>
#include <functional>
#include <locale>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {
std::vector<std::size_t> allocated; // bytes of each new[] since the last look
int buffers = 0;                    // buffers of new[] in use
} // namespace

// Every string buffer comes from new[]: counting here shows each allocation and each leak.
void* operator new[](std::size_t bytes) {
    void* buffer = std::malloc(bytes);
    if (buffer == nullptr)
        throw std::bad_alloc();
    ++buffers;
    allocated.push_back(bytes);
    return buffer;
}
void operator delete[](void* buffer) noexcept {
    buffers -= buffer != nullptr;
    std::free(buffer);
}
void operator delete[](void* buffer, std::size_t) noexcept {
    operator delete[](buffer);
}

namespace {

using Sizes = std::vector<std::size_t>;

Sizes Allocated() {
    Sizes seen;
    seen.swap(allocated);
    return seen;
}

class String : public testing::Test {
    void SetUp() override {
        before = buffers;
        allocated.clear();
    }
    void TearDown() override { EXPECT_EQ(buffers, before) << "buffers have leaked"; }
    int before = 0;
};

std::string Text(const dsBaseString& s) {
    return static_cast<const char*>(s);
}

TEST_F(String, IsBuiltInBuffersOfExactlyItsSize) {
    const char* none = nullptr;
    const auto expect = [](const dsString& s, const char* text, const Sizes& sizes) {
        EXPECT_EQ(Allocated(), sizes) << text;
        EXPECT_STREQ(s, text);
        EXPECT_EQ(s.GetLength(), std::strlen(text));
        EXPECT_EQ(s.IsEmpty(), *text == '\0');
    };
    expect(dsString(), "", {});
    expect(dsString(nullptr), "", {});
    expect(dsString(none), "", {});
    expect(dsString(""), "", {1});
    expect(dsString("abc"), "abc", {4});
    expect(dsString("abc", 2), "ab", {3});
    expect(dsString("abc", 9), "abc", {4});
    expect(dsString("abc", 0u), "", {});
    expect(dsString(none, 3), "", {});
    expect(dsString(none, none), "", {});
    expect(dsString("a", none), "a", {2});
    expect(dsString(none, "b"), "b", {2});
    expect(dsString("", ""), "", {1});
    expect(dsString("ab") + "cd", "abcd", {3, 5});
    expect(dsString() + nullptr, "", {1});
    expect(dsString(static_cast<const wchar_t*>(nullptr)), "", {});
    expect(dsString(L""), "", {});
    expect(dsString(L"wide"), "wide", {6});
}

TEST_F(String, IsAssignedAndAppendedTo) {
    const dsString empty;
    dsString s("abc");
    const dsString& same = s;
    const auto expect = [&](const dsString& result, const char* text, const Sizes& sizes) {
        EXPECT_EQ(Allocated(), sizes) << text;
        EXPECT_EQ(&result, &s);
        EXPECT_STREQ(s, text);
    };
    Allocated();
    expect(s = same, "abc", {});
    expect(s += nullptr, "abc", {});
    expect(s += "", "abc", {});
    expect(s += '\0', "abc", {});
    expect(s += 'd', "abcd", {5});
    expect(s += s, "abcdabcd", {9});
    expect(s = nullptr, "", {});
    EXPECT_EQ(static_cast<const char*>(s), static_cast<const char*>(empty));
    expect(s += "xy", "xy", {3});
    expect(s = empty, "", {1});
    expect(s += 'z', "z", {2});
    expect(s = "", "", {1});
}

TEST_F(String, TakesWideTextInTheEncodingOfTheLocale) {
    const struct {
        const char* locale;
        const wchar_t* wide;
        const char* text;
    } cases[] = {
        {"C", L"a\u00e9", ""},
        {"C.UTF-8", L"\u00e9\u20ac\U0001f600z", "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80z"},
        {"C.UTF-8", L"a\xd800", ""},
        {"en_US.ISO-8859-1", L"\u00e9\u00ff", "\xe9\xff"},
        {"en_US.ISO-8859-1", L"a\u20ac", ""},
    };
    bool skipped = false;
    for (const auto& [locale, wide, text] : cases) {
        if (std::setlocale(LC_ALL, locale) == nullptr) {
            skipped = true;
            continue;
        }
        const dsString s(wide);
        EXPECT_STREQ(s, text) << locale;
        EXPECT_EQ(static_cast<const char*>(s) == static_cast<const char*>(dsString()), *text == 0);
    }
    std::setlocale(LC_ALL, "C");
    if (skipped)
        GTEST_SKIP() << "the host has not all of the locales C.UTF-8 and en_US.ISO-8859-1";
}

TEST_F(String, IsReadFromAndWrittenToStreams) {
    std::strstream stream;
    stream.write("ab\0c\xff", 5);
    dsString s;
    for (const char* text : {"ab", "c\xff", "", ""}) {
        s = stream;
        EXPECT_STREQ(s, text);
    }
    struct Null : dsBaseString {
        operator const char*() const override { return nullptr; }
    };
    std::ostringstream out;
    out << s << Null() << dsString("x\xff") << dsString();
    EXPECT_TRUE(out.good());
    EXPECT_EQ(out.str(), "x\xff");
}

TEST_F(String, ReplacesRangesAndOccurrences) {
    std::mt19937 random(13);
    const auto below = [&](std::size_t n) { return static_cast<unsigned int>(random() % n); };
    const auto word = [&](std::size_t least, std::size_t most) {
        std::string letters(least + below(most - least + 1), 'a');
        for (char& c : letters)
            c = static_cast<char>('a' + below(2));
        return letters;
    };
    for (int i = 0; i < 3000; ++i) {
        const std::string old = word(0, 12), with = word(0, 3), find = word(1, 3);
        const auto size = static_cast<unsigned int>(old.size());
        const unsigned int from = below(size + 1), to = below(size + 1);
        dsString s(old.c_str());
        std::string model = old;
        model.replace(std::min(from, to), std::max(from, to) - std::min(from, to), with);
        ASSERT_EQ(s.Replace(from, to, with.empty() ? nullptr : with.c_str()),
                  from != to || !with.empty());
        ASSERT_EQ(Text(s), model) << old << " " << from << " " << to << " " << with;

        s = old.c_str();
        model = old;
        const int limit = static_cast<int>(below(4)) - 1;
        int count = 0;
        for (std::size_t at = 0; (at = model.find(find, at)) != model.npos; at += with.size()) {
            if (count == limit && limit > 0)
                break;
            model.replace(at, find.size(), with);
            ++count;
        }
        Allocated();
        ASSERT_EQ(s.ReplaceSubStr(find.c_str(), with.c_str(), limit), count);
        ASSERT_EQ(Allocated(), count != 0 ? Sizes{model.size() + 1} : Sizes{});
        ASSERT_EQ(Text(s), model) << old << " " << find << " " << with << " " << limit;
    }
    dsString empty("");
    EXPECT_TRUE(empty.Replace(0, 0, "ab")); // the owned empty buffer is released as well
    EXPECT_TRUE(empty.Replace(2, 0, nullptr));
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_FALSE(empty.Replace(0, 0, ""));
}

TEST_F(String, ShowsNumbersAsTheGlobalLocaleDoes) {
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const auto compare = [](auto value, ToStringOptions options) {
        std::ostringstream out;
        out << (options == 1 ? std::oct : options == 2 ? std::hex : std::dec) << value;
        dsString text("old");
        ToString(value, text, options);
        EXPECT_EQ(Text(text), out.str()) << value << " in " << options;
    };
    for (const std::locale& locale :
         {std::locale::classic(), std::locale(std::locale::classic(), new Grouping)}) {
        const std::locale old = std::locale::global(locale);
        for (int options = 0; options < 4; ++options)
            for (unsigned int value :
                 {0u, 8u, 255u, 1234567u, 0x7fffffffu, 0x80000000u, UINT_MAX}) {
                compare(value, static_cast<ToStringOptions>(options));
                compare(static_cast<int>(value), static_cast<ToStringOptions>(options));
            }
        std::locale::global(old);
    }
}

TEST_F(String, ListsComeApartAsTheyWerePutTogether) {
    const struct {
        const char* list;
        std::vector<std::string> tokens;
    } lists[] = {
        {"a,,b,c", {"a,b", "c"}}, {"", {""}},           {",a", {"", "a"}}, {"a,", {"a"}},
        {"a,,", {"a,"}},          {",,,a", {",", "a"}}, {",", {""}},       {"a,,,", {"a,"}}};
    dsString token;
    for (const auto& [list, tokens] : lists) {
        std::vector<std::string> taken;
        for (const char* rest = list; rest != nullptr; taken.push_back(Text(token)))
            rest = dsGetNextToken(rest, token, ',');
        EXPECT_EQ(taken, tokens) << list;
    }
    EXPECT_EQ(dsGetNextToken(nullptr, token, ','), nullptr);
    EXPECT_TRUE(token.IsEmpty());

    dsString list;
    const char* texts[] = {"a,b", "c,,", "d", "e,\xff,f"};
    for (const char* text : texts) {
        dsMkToken(text, token, ',');
        list += list.IsEmpty() ? "" : ",";
        list += token;
    }
    EXPECT_STREQ(list, "a,,b,c,,,,,d,e,,\xff,,f");
    const char* rest = list;
    for (const char* text : texts) {
        rest = dsGetNextToken(rest, token, ',');
        EXPECT_STREQ(token, text);
    }
    EXPECT_EQ(rest, nullptr);
    dsMkToken(nullptr, token, ',');
    EXPECT_TRUE(token.IsEmpty());
}

TEST_F(String, TakesValuesFromTheEnvironment) {
    dsString value("old");
    unsetenv("PLINTH_TEST_NAME");
    EXPECT_FALSE(Getenv("PLINTH_TEST_NAME", value));
    EXPECT_STREQ(value, "old");
    setenv("PLINTH_TEST_NAME", "new", 1);
    EXPECT_TRUE(Getenv("PLINTH_TEST_NAME", value));
    EXPECT_STREQ(value, "new");
}

TEST_F(String, OffersTheStandardFunctions) {
    char text[16], copy[16];
    EXPECT_EQ(Strcat(Strcpy(text, "ab"), "cdb"), text);
    EXPECT_STREQ(MemCpy<char>(copy, text, 6), "abcdb");
    EXPECT_EQ(Strchr(text, 'b'), text + 1);
    EXPECT_EQ(Strchr(text, '\0'), text + 5);
    EXPECT_EQ(Strstr(text, "db"), text + 3);
    EXPECT_EQ(Strstr(text, "x"), nullptr);
    char* const found = strpbrk(text, "dc");
    EXPECT_EQ(found, text + 2);
    EXPECT_EQ(Strbytes(text), 6);
    EXPECT_STREQ(dscharStr(text).GetBuffer(), text);
    EXPECT_NE(dscharStr(nullptr).GetBuffer(), nullptr);
}

} // namespace
