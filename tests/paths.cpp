// SPDX-License-Identifier: MIT
#include <pfupath.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "testing/hostlistener.h"
#include "tests/countnew.h"
#include "tests/support.h"

namespace {

using Row = std::vector<std::string>;

std::string Text(const char* text) {
    return text;
}

std::string Neutral(const pfuOSPath& native) {
    pfuDirPath path;
    native.ToNeutral(path);
    return Text(path);
}

std::string Trimmed(const char* text) {
    pfuOSPath native(text);
    native.TrimTrailSeps();
    return Text(native);
}

TEST(Path, SplitsAtTheFirstAndAtTheLastSeparator) {
    // The path; its first element and the rest; all but the last element and that.
    for (const auto& row : support::Rows(
             "a      a   -  -  a;  a|b|c a b|c a|b c;   a|  a  - a -;  |     |    -   |    -;"
             "|a|b   |  a|b |a b;  /a    /  a   /  a;   D:| D:| - D:| -;  D:|a D:| a D:| a;"
             "D:\\a|b D:\\ a|b D:\\a b;  D:/a D: a D: a;  D:a D:a - - D:a;  \\a - a - a;"
             "a||b a |b a| b;  ||a | |a | a")) {
        SCOPED_TRACE(row[0]);
        const pfuDirPath path(row[0].c_str());
        pfuDirEntry head, tail;
        pfuDirPath rest(path), front(path);
        EXPECT_TRUE(path.GetHead(head) && path.GetTail(tail));
        EXPECT_TRUE(rest.GetTail(rest) && front.GetHead(front)); // into the path itself
        EXPECT_EQ((Row{Text(head), Text(rest), Text(front), Text(tail)}),
                  Row(row.begin() + 1, row.end()));
    }
    pfuDirPath untouched("x");
    pfuDirEntry entry;
    entry = "y";
    const pfuDirPath empty;
    EXPECT_FALSE(empty.GetHead(untouched) || empty.GetTail(untouched) || empty.GetHead(entry) ||
                 empty.GetTail(entry));
    EXPECT_EQ(Text(untouched) + Text(entry), "xy");
}

TEST(Path, JoinsWithOneSeparatorAndOnlyWhatFits) {
    for (const auto& row :
         support::Rows("| a |a;  a - a;  - a|b a|b;  a b/c a|b/c;  a\\ b a\\|b;  a/ b a/|b;"
                       "a| |b a||b;  D:| a| D:|a|"))
        EXPECT_EQ(Text(pfuDirPath(row[0].c_str(), row[1].c_str())), row[2]);
    pfuDirPath twice("a|b");
    EXPECT_EQ(Text(twice += twice), "a|b|a|b");
    const std::string base(500, 'b'), fits(521, 'f'), tooLong(522, 't');
    EXPECT_EQ(Text(pfuDirPath(base.c_str(), fits.c_str())), base + "|" + fits);
    pfuDirEntry entry;
    entry = tooLong.c_str();
    EXPECT_EQ(Text(pfuDirPath(base.c_str(), entry)), base);
}

TEST(Path, HoldsUpTo1023BytesAndIsNeverCut) {
    const std::string longest(1023, 'x'), tooLong(1024, 'x');
    pfuDirPath path("old");
    pfuDirEntry entry;
    EXPECT_EQ(Text(path = longest.c_str()), longest);
    EXPECT_EQ(Text(path = tooLong.c_str()) + Text(pfuOSPath(tooLong.c_str())), "");
    const pfuDirPath copy(path);
    EXPECT_EQ(Text(pfuDirPath(copy, pfuDirPath("other"))), ""); // would be another file
    EXPECT_TRUE(copy.IsOverlong() && !pfuDirPath("").IsOverlong() && !pfuDirPath().IsOverlong());
    path.SetEmpty();
    EXPECT_EQ(Text(path += "other"), "other");
    EXPECT_EQ(Text(entry = tooLong.c_str()), "");
    EXPECT_EQ(Text((entry = longest.c_str() + 1) += "y"), longest.substr(1) + "y");
    EXPECT_EQ(Text(entry += "z"), longest.substr(1) + "y");
    for (const std::size_t length : {1021u, 1022u, 1023u}) {
        pfuOSPath native(longest.substr(0, length).c_str());
        native.AddWildcard();
        EXPECT_EQ(Text(native).size(), length == 1021 ? 1023u : length);
    }
}

TEST(Path, ConvertsTrimsAndBecomesAPattern) {
    EXPECT_EQ(Text(pfuDirPath("a/b")), "a/b");
    EXPECT_EQ(Text(pfuOSPath("a|b/c\\d")), "a/b/c/d");
    EXPECT_EQ(Neutral("a|b/c\\d"), "a|b|c|d");
    for (const auto& row :
         support::Rows("- - /*;  | / /*;  || // //*;  |a|| /a /a//*;  a\\ a a/*;  D:| D: D:/*;"
                       "D:|a D:/a D:/a/*;  |a|b/ /a/b /a/b/*")) {
        EXPECT_EQ(Trimmed(row[0].c_str()), row[1]) << row[0];
        pfuOSPath native(row[0].c_str());
        native.AddWildcard();
        EXPECT_EQ(Text(native), row[2]) << row[0];
    }
    for (const auto& row : support::Rows("/ |a D:\\a d:|a z:|; - \\a a|b D:/a D:a D: 1:|a :|"))
        for (const std::string& path : row)
            EXPECT_EQ(pfuIsStringPathAbsolute(path.c_str()), row[0] == "/") << path;
}

/// Names that the conversions must not change, in each encoding that a trap can be laid in.
TEST(Path, WalksByCharactersOfTheLocale) {
    const support::LocaleKept kept;
    // No text in UTF-8: the stray byte is stepped over, and what follows it is still converted.
    for (const char* locale : {"C", "C.UTF-8"}) {
        ASSERT_NE(std::setlocale(LC_CTYPE, locale), nullptr);
        EXPECT_EQ(Text(pfuOSPath("\xC3\xA4|\xFF|\xE4\xB8|x\\\xC3")),
                  "\xC3\xA4/\xFF/\xE4\xB8/x/\xC3")
            << locale;
        EXPECT_EQ(Trimmed("|\xFF|\xC3|"), "/\xFF/\xC3") << locale;
    }
    if (std::setlocale(LC_CTYPE, "zh_TW.BIG5") == nullptr)
        GTEST_SKIP() << "no locale zh_TW.BIG5 here";
    // In these two characters the second byte is a `\` or a `|`.
    EXPECT_EQ(Text(pfuOSPath("\xA5\x5C\\\xA5\x7C|b")), "\xA5\x5C/\xA5\x7C/b");
    EXPECT_EQ(Neutral(pfuOSPath("\xA5\x5C/\xA5\x7C/b")), "\xA5\x5C|\xA5\x7C|b");
    EXPECT_EQ(Trimmed("a\xA5\x5C\\|"), "a\xA5\x5C");
    EXPECT_EQ(Text(pfuDirPath("a\xA5\x7C", "b")), "a\xA5\x7C|b");
    // Behind a byte that begins no character yet, a `|` would be taken into one.
    EXPECT_EQ(Neutral(pfuOSPath("a\xA5/b/c")), "a\xA5/b|c");
    EXPECT_EQ(Text(pfuDirPath("a\xA5", "b")), "a\xA5/b");
}

TEST(Path, LeavesTheHeapAlone) {
    const long before = countnew::allocations;
    pfuDirPath path("a|b", "c"), other;
    pfuDirEntry entry;
    EXPECT_TRUE((path += path).GetHead(entry) && path.GetHead(other));
    EXPECT_TRUE(path.GetTail(entry += "x") && path.GetTail(other));
    pfuOSPath native(path);
    native.AddWildcard();
    native.GetHomeDir();
    native.ToNeutral(path);
    EXPECT_EQ(countnew::allocations, before);
}

TEST(Path, FindsTheHomeAndTheCurrentDirectory) {
    const support::TempFolder folder;
    const std::string home = folder.path.string(), longest(1023, 'h'), tooLong(1024, 'h');
    std::filesystem::current_path(folder.path);
    pfuOSPath native;
    native.GetCurrentDir();
    EXPECT_EQ(Text(native), home);
    hostpicture::Announce("environment HOME");
    const auto homeIs = [&](const char* value) {
        value != nullptr ? setenv("HOME", value, 1) : unsetenv("HOME");
        native.GetHomeDir();
        pfuDirPath path("old");
        path.GetHomeDir();
        EXPECT_EQ(Neutral(native), Text(path));
        return Text(native);
    };
    EXPECT_EQ(homeIs("/some/where"), "/some/where");
    EXPECT_EQ(homeIs(longest.c_str()), longest);
    for (const char* useless : {static_cast<const char*>(nullptr), "", tooLong.c_str()})
        EXPECT_EQ(homeIs(useless), home);

    const std::string name(200, 'd');
    for (int level = 0; level < 6; ++level) { // too deep to be told in 1023 bytes
        std::filesystem::create_directory(name);
        std::filesystem::current_path(name);
    }
    native = pfuOSPath("as|it|was");
    native.GetCurrentDir();
    EXPECT_EQ(Text(native), "as/it/was");
    pfuDirPath path("old");
    path.GetCurrentDir();
    EXPECT_TRUE(path.IsEmpty());
}

} // namespace
