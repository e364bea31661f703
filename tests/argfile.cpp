// SPDX-License-Identifier: MIT
#include <cmdargxp.h>

#include <cstdlib>
#include <iomanip>

#include <gtest/gtest.h>

#include "outside/quillmarsh/abort.h"
#include "support.h"
#include "testing/hostlistener.h"
#include "vectors.h"

namespace {

using Texts = std::vector<std::string>;

int reportedLine = 0;

/// The expanded list, with the file "list" in place; what it printed goes to `output`.
Texts Expand(Texts words, const std::string& list, bool echo, std::string& output) {
    std::ofstream("list", std::ios::binary) << list;
    std::vector<char*> given;
    for (std::string& word : words)
        given.push_back(word.data());
    const std::vector<char*> before = given;
    auto argc = static_cast<int>(given.size());
    char** argv = given.data();
    reportedLine = 0;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ExpandCommandArguments(argc, argv, echo);
    output = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    EXPECT_EQ(given, before);
    const Texts expanded(argv, argv + argc);
    EXPECT_EQ(argv == given.data() && !given.empty(), reportedLine != 0) << "a list of its own";
    if (reportedLine != 0)
        return expanded;
    FreeCommandArguments(argc, argv);
    EXPECT_EQ(argv, nullptr);
    return expanded;
}

} // namespace

TEST(ArgFile, TakesThePlaceOfItsPairOrFailsAndChangesNothing) {
    const support::TempFolder folder;
    std::filesystem::current_path(folder.path);
    zelSetAbortHandler([](const char* message, const char* source, int line) {
        EXPECT_EQ(message, nullptr);
        EXPECT_STREQ(source, "cmdargxp");
        reportedLine = line; // and the report returns
    });
    hostpicture::Announce("environment");
    setenv("PLINTH_SET", "/opt/value", 1);
    setenv("PLINTH_PAIR", "a=b", 1);
    setenv("PLINTH_EMPTY", "", 1);
    unsetenv("PLINTH_NOPE");
    std::string output;
    for (const auto& [arguments, bytes] : support::Vectors("argument-file")) {
        Texts expected;
        std::istringstream quoted(arguments);
        for (std::string word; quoted >> std::quoted(word);)
            expected.push_back(word);
        EXPECT_EQ(Expand({"-argfile", "list"}, support::FromHex(bytes), false, output), expected)
            << arguments;
        EXPECT_EQ(output, "");
    }

    const std::string longest(65535, 'x'), usage = "Illegal usage of -argfile\n",
                                           tooLong = "File list has a line that is too long.\n";
    const Texts pair{"-argfile", "list"}, twice{"prog", pair[0], pair[1], "-x", pair[0], pair[1]};
    const struct {
        Texts words;
        std::string list;
        Texts expanded;
        std::string output;
        int line = 0;
    } rows[] = {
        {{}, "", {}, ""},
        {{"prog", "-Argfile"}, "", {"prog", "-Argfile"}, ""},
        {twice, "a b\n\n", {"prog", "a b", "", "-x", "a b", ""}, "prog a b  -x a b \n"},
        {{"-argfile", "list", "-x"}, "unended", {"-x"}, "-x\n"},
        {pair, "", {}, "\n"},
        {pair, "\ta\r\n$PLINTH_SET\tb\n", {"\ta\r", "/opt/value\tb"}, "\ta\r /opt/value\tb\n"},
        {pair, longest + "\nb\n", {longest, "b"}, longest + " b\n"},
        {pair, "a\n" + longest + "x\nb\n", pair, tooLong, 36},
        {pair, longest + "xx", pair, tooLong, 36},
        {{"prog", "-argfile"}, "", {"prog", "-argfile"}, usage, 105},
        {{"-argfile", "no"}, "", {"-argfile", "no"}, "File no cannot be opened.\n", 28},
        {{"-argfile", ".", "-x"}, "", {"-argfile", ".", "-x"}, "File . cannot be opened.\n", 28},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Expand(row.words, row.list, true, output), row.expanded);
        EXPECT_EQ(output, row.output);
        EXPECT_EQ(reportedLine, row.line);
    }
    char** empty = new char*[0];
    FreeCommandArguments(-3, empty);
    EXPECT_EQ(empty, nullptr);
}
