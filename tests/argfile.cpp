// SPDX-License-Identifier: MIT
#include <cmdargxp.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "outside/quillmarsh/abort.h"
#include "vectors.h"

namespace {

using Texts = std::vector<std::string>;

struct Fatal {
    const char* message = "none";
    std::string source;
    int line = 0;
} fatal;

/// A command line, argument files in a private folder, and a fatal report that returns.
class ArgFile : public testing::Test {
protected:
    void SetUp() override {
        char made[] = "/tmp/argfile.XXXXXX";
        ASSERT_NE(mkdtemp(made), nullptr);
        folder = made;
        fatal = {};
        zelSetAbortHandler([](const char* message, const char* source, int line) {
            fatal = {message, source, line};
        });
        setenv("PLINTH_SET", "/opt/value", 1);
        setenv("PLINTH_EMPTY", "", 1);
        unsetenv("PLINTH_NOPE");
    }
    void TearDown() override {
        zelSetAbortHandler(nullptr);
        std::filesystem::remove_all(folder);
    }

    std::string FileOf(const std::string& contents) {
        const std::string name = folder + "/list" + std::to_string(files++);
        std::ofstream(name, std::ios::binary) << contents;
        return name;
    }

    /// The expanded list, or nothing but the line on standard error and a fatal report.
    Texts Expand(Texts words, bool echo = false) {
        std::vector<char*> old;
        for (std::string& word : words)
            old.push_back(word.data());
        const Texts before = words;
        auto argc = static_cast<int>(old.size());
        char** argv = old.data();
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        ExpandCommandArguments(argc, argv, echo);
        output = testing::internal::GetCapturedStdout();
        errors = testing::internal::GetCapturedStderr();
        EXPECT_EQ(words, before);
        if (fatal.line != 0) {
            EXPECT_EQ(argc, static_cast<int>(old.size()));
            EXPECT_EQ(argv, old.data());
            EXPECT_EQ(fatal.message, nullptr);
            EXPECT_EQ(fatal.source, "cmdargxp");
            return {};
        }
        EXPECT_NE(argv, old.data());
        const Texts expanded(argv, argv + argc);
        FreeCommandArguments(argc, argv);
        EXPECT_EQ(argv, nullptr);
        return expanded;
    }

    std::string folder, output, errors;
    int files = 0;
};

} // namespace

TEST_F(ArgFile, IsReadLineByLine) {
    for (const auto& [arguments, bytes] : support::Vectors("argument-file")) {
        Texts expected;
        std::istringstream quoted(arguments);
        for (std::string word; quoted >> std::quoted(word);)
            expected.push_back(word);
        EXPECT_EQ(Expand({"-argfile", FileOf(support::FromHex(bytes))}), expected) << arguments;
    }
    EXPECT_EQ(Expand({"-argfile", FileOf("")}), Texts{});
    EXPECT_EQ(Expand({"-argfile", FileOf("\ta\r\n$PLINTH_SET\tb\n")}),
              (Texts{"\ta\r", "/opt/value\tb"}));
    const std::string longest(65535, 'x');
    EXPECT_EQ(Expand({"-argfile", FileOf(longest + "\nb\n")}), (Texts{longest, "b"}));
    EXPECT_EQ(fatal.line, 0);
}

TEST_F(ArgFile, TakesThePlaceOfItsPairAndIsEchoed) {
    const std::string list = FileOf("a b\n\n");
    EXPECT_EQ(Expand({"prog", "-argfile", list, "-x", "-argfile", list, "-Argfile"}, true),
              (Texts{"prog", "a b", "", "-x", "a b", "", "-Argfile"}));
    EXPECT_EQ(output, "prog a b  -x a b  -Argfile\n");
    EXPECT_EQ(Expand({"prog", "-argfile", list}), (Texts{"prog", "a b", ""}));
    EXPECT_EQ(output, "");
    EXPECT_EQ(Expand({"-argfile", FileOf("unended"), "-x"}, true), Texts{"-x"});
    EXPECT_EQ(output, "-x\n");
    EXPECT_EQ(Expand({"prog", "-x"}, true), (Texts{"prog", "-x"}));
    EXPECT_EQ(Expand({}, true), Texts{});
    EXPECT_EQ(output + errors, "");
}

TEST_F(ArgFile, FailuresAreToldReportedAndLeaveTheListAlone) {
    const std::string missing = folder + "/missing";
    const std::string tooLong = FileOf("a\n" + std::string(65536, 'x') + "\nb\n");
    const std::string longAndUnended = FileOf(std::string(70000, 'x'));
    const struct {
        Texts words;
        std::string errors;
        int line;
    } rows[] = {
        {{"prog", "-argfile"}, "Illegal usage of -argfile\n", 105},
        {{"prog", "-argfile", missing}, "File " + missing + " cannot be opened.\n", 28},
        {{"-argfile", folder, "-argfile"}, "File " + folder + " cannot be opened.\n", 28},
        {{"-argfile", tooLong}, "File " + tooLong + " has a line that is too long.\n", 36},
        {{"-argfile", longAndUnended},
         "File " + longAndUnended + " has a line that is too long.\n",
         36},
    };
    for (const auto& row : rows) {
        fatal = {};
        EXPECT_EQ(Expand(row.words, true), Texts{});
        EXPECT_EQ(fatal.line, row.line);
        EXPECT_EQ(errors, row.errors);
        EXPECT_EQ(output, "");
    }
    char** none = nullptr;
    FreeCommandArguments(0, none);
    char** empty = new char*[0];
    FreeCommandArguments(-3, empty);
    EXPECT_EQ(empty, nullptr);
}
