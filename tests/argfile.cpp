// SPDX-License-Identifier: MIT
#include <cmdargxp.h>

#include <cstdlib>
#include <iomanip>

#include <gtest/gtest.h>

#include "outside/quillmarsh/abort.h"
#include "support.h"
#include "vectors.h"

namespace {

using Texts = std::vector<std::string>;

/// A fatal report that returns.
int reportedLine = 0;
void Report(const char* message, const char* source, int line) {
    EXPECT_EQ(message, nullptr);
    EXPECT_STREQ(source, "cmdargxp");
    reportedLine = line;
}

class ArgFile : public testing::Test {
protected:
    ArgFile() {
        std::filesystem::current_path(folder.path);
        zelSetAbortHandler(Report);
        setenv("PLINTH_SET", "/opt/value", 1);
        setenv("PLINTH_PAIR", "a=b", 1);
        setenv("PLINTH_EMPTY", "", 1);
        unsetenv("PLINTH_NOPE");
    }
    ~ArgFile() override { zelSetAbortHandler(nullptr); }

    /// The expanded list, with the file "list" in place.
    Texts Expand(Texts words, const std::string& list, bool echo = false) {
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
        if (reportedLine != 0) {
            EXPECT_EQ(argv, given.data());
            EXPECT_EQ(expanded, words);
            return {};
        }
        FreeCommandArguments(argc, argv);
        EXPECT_EQ(argv, nullptr);
        return expanded;
    }

    support::TempFolder folder;
    std::string output;
};

} // namespace

TEST_F(ArgFile, IsReadLineByLine) {
    for (const auto& [arguments, bytes] : support::Vectors("argument-file")) {
        Texts expected;
        std::istringstream quoted(arguments);
        for (std::string word; quoted >> std::quoted(word);)
            expected.push_back(word);
        EXPECT_EQ(Expand({"-argfile", "list"}, support::FromHex(bytes)), expected) << arguments;
    }
    EXPECT_EQ(Expand({"-argfile", "list"}, ""), Texts{});
    EXPECT_EQ(Expand({"-argfile", "list"}, "\ta\r\n$PLINTH_SET\tb\n"),
              (Texts{"\ta\r", "/opt/value\tb"}));
    const std::string longest(65535, 'x');
    EXPECT_EQ(Expand({"-argfile", "list"}, longest + "\nb\n"), (Texts{longest, "b"}));
}

TEST_F(ArgFile, TakesThePlaceOfItsPairAndIsEchoed) {
    EXPECT_EQ(
        Expand({"prog", "-argfile", "list", "-x", "-argfile", "list", "-Argfile"}, "a b\n\n", true),
        (Texts{"prog", "a b", "", "-x", "a b", "", "-Argfile"}));
    EXPECT_EQ(output, "prog a b  -x a b  -Argfile\n");
    EXPECT_EQ(Expand({"-argfile", "list", "-x"}, "unended", true), Texts{"-x"});
    EXPECT_EQ(output, "-x\n");
    EXPECT_EQ(Expand({"-argfile", "list"}, "a\n"), Texts{"a"});
    EXPECT_EQ(output, "");
    EXPECT_EQ(Expand({"prog", "-x"}, "", true), (Texts{"prog", "-x"}));
    EXPECT_EQ(Expand({}, "", true), Texts{});
    EXPECT_EQ(output, "");
}

TEST_F(ArgFile, FailuresAreToldReportedAndLeaveTheListAlone) {
    const struct {
        Texts words;
        std::string told;
        int line;
    } rows[] = {
        {{"prog", "-argfile"}, "Illegal usage of -argfile\n", 105},
        {{"prog", "-argfile", "missing"}, "File missing cannot be opened.\n", 28},
        {{"-argfile", ".", "-argfile"}, "File . cannot be opened.\n", 28},
        {{"-argfile", "list"}, "File list has a line that is too long.\n", 36},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Expand(row.words, "a\n" + std::string(65536, 'x') + "\nb\n", true), Texts{});
        EXPECT_EQ(reportedLine, row.line);
        EXPECT_EQ(output, row.told);
    }
    EXPECT_EQ(Expand({"-argfile", "list"}, std::string(70000, 'x')), Texts{});
    char** empty = new char*[0];
    FreeCommandArguments(-3, empty);
    EXPECT_EQ(empty, nullptr);
}
