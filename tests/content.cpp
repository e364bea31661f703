// SPDX-License-Identifier: MIT
#include <pfufs.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <new>
#include <random>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "files/filehandle.h"
#include "support.h"
#include "vectors.h"

namespace {
long allocations = 0;
}

void* operator new(std::size_t size) {
    ++allocations;
    void* const block = std::malloc(size);
    return block != nullptr ? block : throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace {

/// Works in a private folder on the files "from" and "to".
class Content : public testing::Test {
protected:
    Content() { std::filesystem::current_path(folder.path); }
    ~Content() override { EXPECT_EQ(support::OpenDescriptors(), descriptors); }

    support::TempFolder folder;
    long descriptors = support::OpenDescriptors();
};

void Put(const char* path, const std::string& contents) {
    std::ofstream(path, std::ios::binary) << contents;
}

std::string Get(const char* path) {
    std::ostringstream contents;
    contents << std::ifstream(path, std::ios::binary).rdbuf();
    return contents.str();
}

unsigned int CheckSumOf(const std::string& bytes) {
    unsigned int sum = 0, parity = 0;
    for (const char byte : bytes) {
        sum += static_cast<unsigned char>(byte);
        parity ^= static_cast<unsigned char>(byte);
    }
    return static_cast<unsigned int>(bytes.size()) << 16 | (sum & 0xFF) << 8 | parity;
}

std::string Replaced(const std::string& text, const std::string& oldText,
                     const std::string& newText) {
    std::string result;
    std::size_t from = 0;
    for (std::size_t at; (at = text.find(oldText, from)) != text.npos; from = at + oldText.size())
        result.append(text, from, at - from).append(newText);
    return result.append(text, from);
}

/// Replaces in a file that holds `text`, and compares with the replacement in memory.
void ExpectReplaced(const std::string& text, const std::string& oldText,
                    const std::string& newText) {
    Put("from", text);
    const long before = allocations;
    const errstatus status =
        pfuFS::pfuReplaceString(oldText.c_str(), newText.c_str(), "from", "to");
    EXPECT_EQ(allocations, before);
    ASSERT_EQ(status, errOK);
    // Not printed as they are: the texts are long.
    ASSERT_TRUE(Get("to") == Replaced(text, oldText, newText))
        << oldText.size() << " bytes in " << text.size();
    ASSERT_TRUE(Get("from") == text);
}

} // namespace

TEST_F(Content, HasAChecksumOfCountSumAndParity) {
    for (const auto& [bytes, checksum] : support::Vectors("checksum")) {
        Put("from", support::FromHex(bytes));
        unsigned int found = 1;
        EXPECT_EQ(pfuFS::pfuCalcCheckSumByPath(".|from", found), errOK);
        unsigned int expected = 0;
        for (const char byte : support::FromHex(checksum))
            expected = expected << 8 | static_cast<unsigned char>(byte);
        EXPECT_EQ(found, expected) << bytes;
    }
    std::mt19937 random(3);
    for (const std::size_t size : {4095ul, 65535ul, 65536ul, 65537ul, 200000ul}) {
        std::string bytes(size, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        Put("from", bytes);
        unsigned int found = 1;
        const long before = allocations;
        EXPECT_EQ(pfuFS::pfuCalcCheckSumByPath("from", found), errOK);
        EXPECT_EQ(allocations, before);
        EXPECT_EQ(found, CheckSumOf(bytes)) << size;
    }
    Put("from", std::string(65537, '\xFF'));
    unsigned int found = 7;
    for (const char* const none : {"missing", ".", "from|x", "/proc/self/mem"})
        EXPECT_EQ(pfuFS::pfuCalcCheckSumByPath(none, found), errFailed) << none;
    {
        const files::FileHandle writer(files::OpenTarget("busy"));
        EXPECT_EQ(pfuFS::pfuCalcCheckSumByPath("busy", found), errFailed);
    }
    EXPECT_EQ(found, 7u);
    const files::FileHandle reader(files::OpenSource("from"));
    EXPECT_EQ(pfuFS::pfuCalcCheckSumByPath("from", found), errOK);
    EXPECT_EQ(found, 0x0001FFFFu);
}

TEST_F(Content, IsReplacedWhereverAnOccurrenceLies) {
    for (const auto& row : support::Rows( // text, old, new
             "nothing x y;  - x y;  aaa a aa;  aaa aa b;  aaaa aa -;  xab ab ab;"
             "abxabxaby abxaby z;  ends end ;  xen end q;  aab ab c"))
        ExpectReplaced(row[0], row[1], row.size() > 2 ? row[2] : "");
    const std::string withNul("a\0needle\0\0needl", 16);
    ExpectReplaced(withNul, "needle", "pin");

    // At every place around where one block ends and the next begins.
    std::string longest(4095, 'n');
    longest.back() = 'e';
    for (const std::string& needle : {std::string("x"), std::string("needle"), longest})
        for (const std::size_t block : {4095u, 8190u, 32768u, 65536u - 5u})
            for (std::size_t before = 0; before <= needle.size() + 1; ++before) {
                if ((before > 8 && before + 8 < needle.size()) || before > block)
                    continue;
                std::string text(block + 5000, '.');
                for (std::size_t i = 0; i < text.size(); i += 20)
                    text[i] = 'n';
                text.replace(block - before, needle.size(), needle);
                text.replace(1, needle.size(), needle);
                ExpectReplaced(text, needle, "<>");
                ExpectReplaced(text.substr(0, block - before + needle.size()), needle, "");
                ExpectReplaced(text.substr(0, block - before + needle.size() - 1), needle, "<>");
            }

    std::mt19937 random(11);
    for (int round = 0; round < 150; ++round) {
        const auto word = [&](std::size_t length) {
            std::string letters(length, 'a');
            for (char& letter : letters)
                letter = static_cast<char>('a' + random() % 2);
            return letters;
        };
        ExpectReplaced(word(random() % 100000), word(1 + random() % 12), word(random() % 15));
    }
}

TEST_F(Content, IsLeftAloneByAReplacementThatCannotBegin) {
    Put("from", "some text");
    Put("to", "former");
    std::filesystem::create_symlink("from", "link");
    std::filesystem::create_hard_link("from", "same");
    const std::string tooLong(4096, 't');
    const struct {
        const char *oldText, *from, *to;
    } rows[] = {
        {"", "from", "to"},     {tooLong.c_str(), "from", "to"},
        {"t", "missing", "to"}, {"t", ".", "to"},
        {"t", "", "to"},        {"t", "from", "from"},
        {"t", "from", "link"},  {"t", "same", "from"},
        {"t", "from", "."},     {"t", "from", "from|new"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(pfuFS::pfuReplaceString(row.oldText, "x", row.from, row.to), errFailed)
            << row.from << " to " << row.to;
        EXPECT_EQ(Get("from"), "some text");
        EXPECT_EQ(Get("to"), "former");
    }
}

TEST_F(Content, StaysWithWhatWasWrittenBeforeAFailure) {
    Put("to", "former");
    EXPECT_EQ(pfuFS::pfuReplaceString("a", "b", "/proc/self/mem", "to"), errFailed);
    EXPECT_EQ(Get("to"), ""); // the first read failed

    std::string text;
    while (text.size() < 200000)
        text += "a line with a needle in it\n";
    Put("from", text);
    EXPECT_EQ(pfuFS::pfuReplaceString("needle", "pin", "from", "/dev/full"), errFailed);

    // A file may grow to 100,000 bytes: one write falls short and the next ones fail.
    const auto former = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit lower{100000, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &lower);
    const errstatus status = pfuFS::pfuReplaceString("needle", "pin", "from", "to");
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, former);
    EXPECT_EQ(status, errFailed);
    EXPECT_TRUE(Get("to") == Replaced(text, "needle", "pin").substr(0, 100000));
    EXPECT_TRUE(Get("from") == text);
}
