// SPDX-License-Identifier: MIT
#include <pfufs.h>

#include <csignal>
#include <random>

#include <sys/resource.h>
#include <sys/stat.h>

#include "files/filehandle.h"
#include "tests/countnew.h"
#include "tests/infolder.h"
#include "tests/vectors.h"

namespace {

std::string Replaced(const std::string& text, const std::string& oldText,
                     const std::string& newText) {
    std::string result;
    std::size_t from = 0;
    for (std::size_t at; (at = text.find(oldText, from)) != text.npos; from = at + oldText.size())
        result.append(text, from, at - from).append(newText);
    return result.append(text, from);
}

/// Works on the files "from" and "to".
struct Content : InFolder {
    /// Replaces in a file that holds `text`, and compares with the replacement in memory.
    static void ExpectReplaced(const std::string& text, const std::string& oldText,
                               const std::string& newText) {
        Put("from", text);
        const long before = countnew::allocations;
        ASSERT_EQ(pfuFS::pfuReplaceString(oldText.c_str(), newText.c_str(), "from", "to"), errOK);
        ASSERT_EQ(countnew::allocations, before);
        const bool right = Get("to") == Replaced(text, oldText, newText); // too long to be printed
        ASSERT_TRUE(right) << oldText.size() << " bytes in " << text.size();
    }
};

TEST_F(Content, HasAChecksumOfCountSumAndParity) {
    unsigned int found = 7;
    for (const auto& [bytes, checksum] : support::Vectors("checksum")) {
        const std::size_t times = bytes.find(" * ");
        std::string contents;
        for (int i = times == bytes.npos ? 1 : std::stoi(bytes.substr(times + 3)); i > 0; --i)
            contents += support::FromHex(bytes.substr(0, times));
        Put("from", contents);
        const long before = countnew::allocations;
        EXPECT_EQ(pfuFS::pfuCalcCheckSumByPath(".|from", found), errOK);
        EXPECT_EQ(countnew::allocations, before);
        EXPECT_EQ(found, std::stoul(checksum, nullptr, 16)) << bytes;
    }
    const files::FileHandle writer(files::OpenTarget("busy"));
    found = 7;
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const char* const path : {"missing", ".", "from|x", "/proc/self/mem", "busy", "pipe"})
        EXPECT_EQ(pfuFS::pfuCalcCheckSumByPath(path, found), errFailed) << path;
    EXPECT_EQ(found, 7u);
}

TEST_F(Content, IsReplacedWhereverAnOccurrenceLies) {
    for (const auto& row : support::Rows( // text, old, new
             "nothing x y;  - x y;  aaa a aa;  aaa aa b;  aaaa aa -;  xab ab ab; ends end -;"
             "abxabxaby abxaby z;  xen end q;  aab ab c"))
        ExpectReplaced(row[0], row[1], row[2]);
    ExpectReplaced(std::string("a\0needle\0\0needl", 15), "needle", "pin");

    // At every place around where one block ends and the next begins.
    const std::string longest = std::string(4094, 'n') + 'e';
    for (const std::string& needle : {std::string("x"), std::string("needle"), longest})
        for (const std::size_t block : {4095u, 8190u, 32768u, 65536u - 5u})
            for (std::size_t before = 0; before <= std::min(needle.size() + 1, block); ++before) {
                if (before > 8 && before + 8 < needle.size())
                    continue;
                std::string text(block + 5000, '.');
                for (std::size_t i = 0; i < text.size(); i += 20)
                    text[i] = 'n';
                text.replace(block - before, needle.size(), needle);
                ExpectReplaced(text, needle, "<>");
                text.resize(block - before + needle.size() - 1);
                ExpectReplaced(text, needle, "<>");
            }

    std::mt19937 random(11);
    for (int round = 0; round < 150; ++round) {
        const auto word = [&](std::size_t length) {
            std::string letters(length, 'a');
            for (char& letter : letters)
                letter = random() % 2 ? 'a' : 'b';
            return letters;
        };
        ExpectReplaced(word(random() % 100000), word(1 + random() % 12), word(random() % 15));
    }
}

TEST_F(Content, IsLeftAloneByAReplacementThatCannotBegin) {
    Put("from", "some text");
    Put("to", "former");
    fs::create_symlink("from", "link");
    fs::create_hard_link("from", "same");
    for (const auto& row : support::Rows( // old, from, to
             "- from to;  t missing to;  t . to;  t - to;  t from from;  t from link;"
             "t same from;  t from .;  t from from|new; " +
             std::string(4096, 't') + " from to")) {
        EXPECT_EQ(pfuFS::pfuReplaceString(row[0].c_str(), "x", row[1].c_str(), row[2].c_str()),
                  errFailed)
            << row[1] << " to " << row[2];
        EXPECT_EQ(Get("from") + Get("to"), "some textformer");
    }
}

TEST_F(Content, StaysWithWhatWasWrittenBeforeAFailure) {
    Put("to", "former");
    EXPECT_EQ(pfuFS::pfuReplaceString("a", "b", "/proc/self/mem", "to"), errFailed);
    EXPECT_EQ(Get("to"), ""); // the first read failed
    // This gives multiples of 8 bytes, or fails, as it does where some have been carried.
    EXPECT_EQ(pfuFS::pfuReplaceString("needle", "pin", "/proc/self/pagemap", "to"), errFailed);
    EXPECT_EQ(Get("to").size() % 4096, 0u);

    std::string text;
    while (text.size() < 200000)
        text += "a line with a needle in it\n";
    Put("from", text);
    EXPECT_EQ(pfuFS::pfuReplaceString("needle", "pin", "from", "/dev/full"), errFailed);

    std::signal(SIGXFSZ, SIG_IGN);
    rlimit former{};
    getrlimit(RLIMIT_FSIZE, &former);
    const rlimit lower{100000, former.rlim_max}; // one write falls short, the next ones fail
    setrlimit(RLIMIT_FSIZE, &lower);
    EXPECT_EQ(pfuFS::pfuReplaceString("needle", "pin", "from", "to"), errFailed);
    setrlimit(RLIMIT_FSIZE, &former);
    std::signal(SIGXFSZ, SIG_DFL);
    EXPECT_TRUE(Get("to") == Replaced(text, "needle", "pin").substr(0, 100000));
}

} // namespace
