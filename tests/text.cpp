// SPDX-License-Identifier: MIT
#include <mbconv.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <clocale>
#include <cwchar>
#include <iomanip>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "outside/quillmarsh/multibyte.h"
#include "outside/varnholt/text.h"
#include "tests/support.h"
#include "tests/vectors.h"

namespace {

using support::FromHex;
using support::Vectors;

/// What a conversion gave, released as it has to be.
std::optional<std::string> Take(char* text) {
    const std::unique_ptr<char, decltype([](char* block) { operator delete(block); })> block(text);
    return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

std::mt19937 randomly(20240229);

std::size_t Below(std::size_t end) {
    return randomly() % end;
}

/// A random text of the words in `words`; half of all texts have only such as some encoding knows.
template <typename Char>
std::basic_string<Char> Join(const std::basic_string<Char>& words) {
    std::basic_istringstream<Char> in(words);
    std::vector<std::basic_string<Char>> pieces;
    for (std::basic_string<Char> word; in >> word;)
        pieces.push_back(word);
    const std::size_t choice = Below(2) == 0 ? 6 : pieces.size();
    std::basic_string<Char> text;
    for (std::size_t left = Below(7); left > 0; --left)
        text += pieces[Below(choice)];
    return text;
}
const std::string narrowWords =
    "a plain-ascii-text \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF "
    "\xFF \xC0\x80 \xED\xA0\x80 \xF4\x90\x80\x80 \xF8\x88\x80\x80\x80 \xE2\x82 \xA4\xA4";
const std::wstring wideWords = L"a plain-ascii-text \u00E9 \u20AC \U0001F600 \x10FFFF \xD800 "
                               L"\x110000 \xFFFFFFFF \x7F";

class NativeText : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (std::setlocale(LC_ALL, GetParam()) == nullptr)
            GTEST_SKIP() << "this host has no locale " << GetParam();
    }
    const support::LocaleKept kept;
};
INSTANTIATE_TEST_SUITE_P(Locales, NativeText,
                         testing::Values("C", "C.UTF-8", "en_US.ISO-8859-1", "zh_TW.BIG5"));

// Results, errno, and every element of the target must be those of the C functions; and what has
// the same bytes in both forms must be what the road through wide text gives.
TEST_P(NativeText, ConvertsLikeTheCFunctions) {
    const auto convert = [](auto call, auto target, auto text, std::size_t limit) {
        errno = 0;
        const std::size_t null = call(nullptr, text, limit);
        const std::size_t count = call(target.data(), text, limit);
        if (count == std::size_t(-1))
            target.clear(); // C leaves open what it holds
        return std::tuple(null, count, errno, target);
    };
    for (int round = 0; round < 10000; ++round) {
        const std::string narrow = Join(narrowWords);
        SCOPED_TRACE(testing::PrintToString(narrow));
        const char* const text = narrow.c_str();
        std::vector<wchar_t> wide(narrow.size() + 3, L'#');
        const std::size_t limit = Below(wide.size());
        ASSERT_EQ(convert(zel_mbstowcs, wide, text, limit),
                  convert(std::mbstowcs, wide, text, limit));
        wchar_t mine = L'#', theirs = L'#';
        ASSERT_EQ(zel_mbtowc(&mine, text, limit + 1), std::mbtowc(&theirs, text, limit + 1));
        ASSERT_EQ(mine, theirs);
        std::mbtowc(nullptr, nullptr, 0);
        ASSERT_EQ(zel_mblen(text, limit + 1), std::mblen(text, limit + 1));
        std::mblen(nullptr, 0);

        std::optional<std::string> neutral, native;
        std::vector<char> bytes(4 * wide.size());
        if (std::mbstowcs(wide.data(), text, wide.size()) != std::size_t(-1)) {
            mbxWideToNeut(bytes.data(), wide.data());
            neutral = bytes.data();
        }
        ASSERT_EQ(Take(mbxNativeToNeut(text)), neutral);
        mbxNeutToWide(text, wide.data());
        if (std::wcstombs(bytes.data(), wide.data(), bytes.size()) != std::size_t(-1))
            native = bytes.data();
        ASSERT_EQ(Take(mbxNeutToNative(text)), native);

        const int length = std::mblen(text, 4);
        std::mblen(nullptr, 0);
        const std::string first = narrow.substr(0, static_cast<std::size_t>(std::max(length, 0)));
        const auto none = std::optional<std::string>();
        ASSERT_EQ(Take(mbcNativeToNeut(text)),
                  length < 0 ? none : Take(mbxNativeToNeut(first.c_str())));
        ASSERT_EQ(Take(mbcNeutToNative(text)),
                  length < 0 ? none : Take(mbxNeutToNative(first.c_str())));
    }
    for (int round = 0; round < 10000; ++round) {
        const std::wstring wide = Join(wideWords);
        SCOPED_TRACE(testing::PrintToString(wide));
        const std::vector<char> bytes(4 * wide.size() + 2, '#');
        const std::size_t limit = Below(bytes.size());
        ASSERT_EQ(convert(zel_wcstombs, bytes, wide.c_str(), limit),
                  convert(std::wcstombs, bytes, wide.c_str(), limit));
        char one[MB_LEN_MAX] = {}, other[MB_LEN_MAX] = {};
        ASSERT_EQ(zel_wctomb(one, wide[0]), std::wctomb(other, wide[0]));
        ASSERT_EQ(std::string(one), other);
    }
}

TEST(NeutralText, HasTheBytesOnThePage) {
    const auto characters = [](const std::string& row) {
        std::istringstream in(row);
        std::wstring wide;
        for (std::string name; in >> name;)
            wide += static_cast<wchar_t>(std::stoul(name.substr(2), nullptr, 16));
        return wide;
    };
    const auto read = [](const std::string& neutral) {
        std::vector<wchar_t> wide(neutral.size() + 2);
        const int count = mbxNeutToWide(neutral.c_str(), wide.data());
        return std::wstring(wide.data(), static_cast<std::size_t>(count));
    };
    // In front of each: so much plain text that the character stands anywhere in a word.
    for (const std::string before : {"", "a", "abcdefg", "abcdefghijkl"}) {
        const std::wstring wideBefore(before.begin(), before.end());
        for (const auto& [left, right] : Vectors("neutral")) {
            const std::wstring wide = wideBefore + characters(left) + L"plain text";
            const std::string neutral = before + FromHex(right) + "plain text";
            std::vector<char> bytes(4 * wide.size() + 1);
            EXPECT_EQ(mbxWideToNeut(bytes.data(), wide.c_str()), int(neutral.size())) << left;
            EXPECT_EQ(std::string(bytes.data()), neutral);
            EXPECT_EQ(read(neutral), wide);
        }
        for (const auto& [left, right] : Vectors("neutral-invalid"))
            EXPECT_EQ(read(before + FromHex(right)), wideBefore + characters(left)) << right;
    }
    char bytes[16];
    const wchar_t none[] = {0xD800, 0x110000, wchar_t(-1), 0};
    EXPECT_EQ(mbxWideToNeut(bytes, none), 9);
    EXPECT_STREQ(bytes, "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(NeutralText, ConvertsBlocksOfPieces) {
    const support::LocaleKept kept;
    if (std::setlocale(LC_ALL, "en_US.ISO-8859-1") == nullptr)
        GTEST_SKIP() << "this host has no locale en_US.ISO-8859-1";
    // The list and the NUL behind it; nothing where the block does not convert.
    const auto list = [](std::string block, int length, std::size_t size) {
        block.shrink_to_fit();
        testing::internal::CaptureStdout();
        char* neutral = mbxNativeToNeut(block.data(), length);
        const std::string said = testing::internal::GetCapturedStdout();
        std::string bytes = neutral != nullptr ? std::string(neutral, size) : said;
        operator delete(neutral);
        return bytes;
    };
    using namespace std::string_literals;
    const std::string tooLong = "mbxNativeToNeut:Cannot handle strings longer than 4096";
    EXPECT_EQ(list("a\0\xE9"s, 3, 6), "a\0\xC3\xA9\0\0"s);
    EXPECT_EQ(list("a\0b\0"s, 4, 6), "a\0b\0\0\0"s);
    EXPECT_EQ(list("\0\0"s, 2, 4), "\0\0\0\0"s);
    EXPECT_EQ(list("abc"s, 0, 1), "\0"s);
    EXPECT_EQ(list("abc"s, -5, 1), "\0"s);
    const std::string fits(4094, 'x'), over(4095, 'x');
    EXPECT_EQ(list(fits, 4094, 4096), fits + "\0\0"s);
    EXPECT_EQ(list(over, 4095, 0), tooLong);
    EXPECT_EQ(list(std::string(2047, '\xE9') + "\0"s, 2048, 0), tooLong);
    EXPECT_EQ(list(std::string(2046, '\xE9') + "\0x"s, 2048, 4096).substr(4092), "\0x\0\0"s);
    ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
    EXPECT_EQ(list("ok\0\xE9"s, 4, 0), "") << "a piece without neutral form gives null, silently";
}

TEST(QuotedText, IsWhatThePageSays) {
    for (const auto& [left, right] : Vectors("quoting")) {
        std::ostringstream out;
        out << std::hex << std::showbase << std::left << std::setfill('*');
        NativeStringToCStyle(FromHex(left).c_str(), out);
        EXPECT_EQ(out.str(), right);
        const bool hasNumber = right.find_first_of("0123456789") != right.npos;
        EXPECT_EQ(out.fill(), hasNumber ? '0' : '*') << right;
        EXPECT_EQ(out.flags() & std::ios::basefield, hasNumber ? std::ios::dec : std::ios::hex);
    }
    for (const bool noQuotes : {true, false})
        for (const auto& [left, right] : Vectors(noQuotes ? "unquoting" : "unquoting-delimited")) {
            // In a block of its own size, so that nothing is read behind it unseen.
            const auto text = std::make_unique<char[]>(left.size() + 1);
            left.copy(text.get(), left.size());
            std::ostringstream out;
            CStyleStringToNative(text.get(), noQuotes, out);
            EXPECT_EQ(out.str(), FromHex(right)) << left;
        }
}

} // namespace
