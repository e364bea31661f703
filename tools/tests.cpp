// SPDX-License-Identifier: MIT
//
// plinth-dump and plinth-run as their users see them, and what of plinth-dump can be seen closer.
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "dumper.h"
#include "examples/children.h"
#include "shownbytes.h"
#include "tests/support.h"
#include "tests/vectors.h"

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
using support::FromHex;

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct Dumped {
    std::string text;
    std::uint64_t bad;
};

Dumped Dump(const std::string& layout, const std::string& bytes, bool messages) {
    const tools::Layout fields = tools::ParseLayout(layout);
    std::stringbuf input(bytes);
    std::ostringstream output;
    tools::Look look;
    look.unicode = true;
    tools::Dumper dumper(input, output, fields, look);
    messages ? dumper.DumpMessages() : dumper.DumpRecords();
    return {output.str(), dumper.Bad()};
}

const char list[] = "int type, text name, int count, count*(text key, block data)";
const char listed[] = "00 00 00 2F 00 00 00 03 00 00 00 06 47 72 C3 BC 22 01 00 00 00 02 "
                      "00 00 00 02 6B 31 00 00 00 09 30 31 32 33 34 35 36 37 00 "
                      "FF FF FF FF 00 00 00 00 00 00 00 04 FF FF FF FE";

TEST(DumpTest, ShowsEachFieldOfAMessage) {
    const Dumped dumped =
        Dump("int type, text name, int count, *(text key, block data)", FromHex(listed), true);
    EXPECT_EQ(dumped.text, R"(00000000  00 00 00 2F              message 1    47 bytes
00000004  00 00 00 03              type         3
00000008  00 00 00 06 47 72 C3 BC  name         "Grü\"\x01"
00000010  22 01
00000012  00 00 00 02              count        2
00000016  00 00 00 02 6B 31        key[0]       "k1"
0000001C  00 00 00 09              data[0]      9 bytes
00000020  30 31 32 33 34 35 36 37               |01234567|
00000028  00                                    |.|
00000029  FF FF FF FF              key[1]       null
0000002D  00 00 00 00              data[1]      0 bytes
00000031  00 00                    key[2]       !! torn: 2 of 4 bytes

00000033  00 04 FF FF              message 2    327679 bytes
00000037  FF FE                    type         !! torn: 2 of 4 bytes
00000039                           message 2    !! torn: 2 of 327679 bytes
)");
    EXPECT_EQ(dumped.bad, 3U);
}

TEST(DumpTest, MarksWhatIsBadAndGoesOn) {
    struct {
        const char *layout, *bytes, *marked;
        std::uint64_t bad;
    } const rows[] = {
        {"short s, int next", "00 00 80 00 00 00 00 07", "32768  !! does not fit 16 bits", 1},
        {"ushort u, int next", "00 01 00 00 00 00 00 07", "65536  !! does not fit 16 bits", 1},
        {"text t, int next", "00 00 00 03 61 FF 62 00 00 00 07", R"("a\xFFb"  !! no UTF-8)", 1},
        {"text t, int next", "00 00 00 03 61 00 62 00 00 00 07", R"("a\x00b"  !! a NUL)", 1},
        {"wide t, int next", "00 00 00 02 61 00 00 00 00 07", R"("a")", 0},
        {"text t, int next", "FF FF FF FE 00 00 00 07", "null  !! a prefix of -2", 1},
        {"text t, int next", "00 00 00 03 E2 80 AE 00 00 00 07", R"("\u{202E}")", 0},
        {"character c, int next", "00 00 00 03 E2 82 AC 00 00 00 07", "U+20AC '€'", 0},
        {"character c, int next", "00 00 00 00 00 00 00 07", "!! no character", 1},
        {"character c, int next", "00 00 00 02 61 62 00 00 00 07", "!! no character", 1},
        {"block b, int next", "FF FF FF FF 61 62 63 07", "(rest)       |abc.|", 1},
        {"int n, n*(int), int next", "FF FF FF FF 00 00 00 07", "-1 times  !! a negative", 1},
        {"int n, n*(int n), n*(char), int next",
         "00 00 00 02 00 00 00 09 00 00 00 09 61 62 00 00 00 07", "98 'b'", 0},
        {"int n, n*(int m, m*(int)), int next", "7F FF FF FF 00 00 00 00", "torn: 1 of 21474", 1},
        {"float f, double d, char c, uchar next", "3F 80 00 00 BF F1 99 99 99 99 99 9A FF 07",
         "-1.1", 0},
        {"rest r", "41 07", "|A.|", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.layout) + ": " + row.bytes);
        for (const bool framed : {false, true}) {
            const std::string bytes = FromHex(row.bytes);
            const std::string prefix{'\0', '\0', '\0', static_cast<char>(bytes.size())};
            const Dumped dumped = Dump(row.layout, (framed ? prefix : "") + bytes, framed);
            EXPECT_NE(dumped.text.find(row.marked), std::string::npos) << dumped.text;
            EXPECT_EQ(dumped.bad, row.bad) << dumped.text;
            const bool found = dumped.text.find("next         7") != std::string::npos;
            const bool expected = std::string(row.layout).find("next") != std::string::npos &&
                                  row.bytes[0] != '7' && std::string(row.layout)[0] != 'b';
            EXPECT_EQ(found, expected) << dumped.text;
        }
    }
}

TEST(DumpTest, ShowsEveryByteOfEveryCut) {
    const std::string one = FromHex("00 00 00 2D") + FromHex(listed).substr(4, 0x2D);
    const std::string surplus = FromHex("00 00 00 09") + "surplus!!";
    const std::string whole = one + FromHex("FF FF FF FF") + surplus + one;
    const std::set<std::size_t> ends{0, one.size()};
    for (std::size_t size = 0; size <= whole.size(); ++size)
        for (const bool messages : {false, true}) {
            const std::string bytes = whole.substr(0, size);
            const Dumped dumped = Dump(list, bytes, messages);
            bool offsetsHold = false;
            ASSERT_EQ(tools::ShownBytes(dumped.text, offsetsHold), bytes) << dumped.text;
            ASSERT_TRUE(offsetsHold) << dumped.text;
            ASSERT_TRUE(!messages || (dumped.bad == 0) == (ends.count(size) != 0)) << dumped.text;
        }
}

TEST(DumpTest, SaysWhatIsWrongWithALayout) {
    const char* const rows[][2] = {
        {"", "a kind expected at the start"},
        {"int a,", "a kind expected behind 'int a,'"},
        {"int a int b", "',' expected behind 'int a '"},
        {"bool a", "no kind 'bool' at the start"},
        {"n*(int)", "no number 'n' before at the start"},
        {"text n, n*(int)", "no number 'n' before"},
        {"*(int n), n*(int)", "no number 'n' before"},
        {"*(int", "',' or ')' expected"},
        {"* int", "'(' expected"},
        {"*(*(*(*(*(*(*(*(*(*(*(*(*(*(*(*(*(int)))))))))))))))))", "too many groups"},
    };
    for (const auto& row : rows)
        try {
            static_cast<void>(tools::ParseLayout(row[0]));
            ADD_FAILURE() << row[0];
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find(row[1]), std::string::npos) << error.what();
        }
}

/// A program that is run to its end, or talked to meanwhile. What it says on both streams comes
/// through one pipe.
struct Tool : TalkingChild {
    explicit Tool(Strings words) : TalkingChild(Joined(std::move(words))) {
        EXPECT_EQ(status, errOK);
    }
    static Strings Joined(Strings words) {
        words.insert(words.begin(), {"sh", "-c", "exec \"$@\" 2>&1", "sh"});
        return words;
    }
    std::string Line() {
        std::string line;
        std::getline(*says, line);
        return line;
    }
    /// What is left to be said, with the status in front.
    std::string Rest() {
        const std::string said{std::istreambuf_iterator<char>(*says), {}};
        return std::to_string(process.WaitForProcess()) + ' ' + said;
    }
};

bool Runs(const std::string& id) {
    const std::string state = ReadFile("/proc/" + id + "/stat");
    return !state.empty() && state.find(") Z ") == std::string::npos;
}

void ExpectFound(const std::string& said, const Strings& parts) {
    for (const std::string& part : parts)
        EXPECT_NE(said.find(part), std::string::npos) << part << "\n" << said;
}

class ToolTest : public testing::Test {
protected:
    std::string Path(const char* name) { return (temp.path / name).string(); }
    void Write(const char* name, const std::string& content) {
        std::ofstream(Path(name), std::ios::binary) << content;
    }

    support::TempFolder temp;
};

TEST_F(ToolTest, HelpAndManualNameTheSameOptions) {
    const std::regex inHelp("--([a-z]+)"), inManual("Fl -([a-z]+)");
    const auto names = [](const std::string& text, const std::regex& form) {
        std::set<std::string> found;
        for (std::sregex_iterator at(text.begin(), text.end(), form), end; at != end; ++at)
            found.insert((*at)[1]);
        return found;
    };
    for (const std::string tool : {PLINTH_DUMP, PLINTH_RUN}) {
        const std::string name = fs::path(tool).filename();
        const std::string help = Tool({tool, "--help"}).Rest();
        EXPECT_EQ(names(help, inHelp), names(ReadFile(PLINTH_MANUALS "/" + name + ".1"), inManual));
        ExpectFound(help, {"0 usage: " + name});
        ExpectFound(Tool({tool, "--version"}).Rest(), {"0 " + name + " "});
        ExpectFound(Tool({"sh", "-c", "\"$1\" --help 2>&1 >/dev/full", "sh", tool}).Rest(),
                    {": cannot write\n"});
        EXPECT_NE(Tool({tool, "--nonsense"}).Rest()[0], '0');
        EXPECT_NE(Tool({tool}).Rest()[0], '0');
    }
}

TEST_F(ToolTest, DumpTellsByItsStatusWhatItSaw) {
    Write("good", FromHex("00 00 00 01"));
    Write("bad", FromHex("00 00 00"));
    ExpectFound(Tool({PLINTH_DUMP, "int x", Path("good")}).Rest(),
                {"0 record 1\n", "x            1\n"});
    ExpectFound(Tool({PLINTH_DUMP, "int x", Path("bad")}).Rest(), {"1 ", "1 marked as bad"});
    ExpectFound(Tool({PLINTH_DUMP, "int x", Path("none")}).Rest(), {"2 plinth-dump: cannot open"});
    ExpectFound(Tool({PLINTH_DUMP, "int x", temp.path}).Rest(), {"2 plinth-dump: cannot"});
    ExpectFound(Tool({PLINTH_DUMP, "number x", Path("good")}).Rest(),
                {"2 plinth-dump: layout: no"});
    Write("long", std::string(1000, 'x'));
    ExpectFound(
        Tool({"sh", "-c", "exec \"$1\" -r 2 rest <\"$2\"", "sh", PLINTH_DUMP, Path("long")}).Rest(),
        {"00000008  78", "... 984 more bytes"});
    ExpectFound(Tool({PLINTH_DUMP, "-r", "2305843009213693952", "rest", Path("good")}).Rest(),
                {"0 record 1\n00000000  00 00 00 01 "});
}

/// Where they are not, as in a bare chroot, nobody can make a terminal.
bool AreTerminalsHere() {
    return access("/dev/pts/ptmx", F_OK) == 0;
}

TEST_F(ToolTest, ColoursAreForTerminalsThatWantThem) {
    if (!AreTerminalsHere())
        GTEST_SKIP() << "/dev/pts is not mounted";
    Write("bad", FromHex("00 00 00"));
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_TRUE(terminal != -1 && grantpt(terminal) == 0 && unlockpt(terminal) == 0);
    const std::string name = ptsname(terminal);
    const int keptOpen = open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const auto shown = [&](const std::string& environment, const std::string& to) {
        Tool tool({"sh", "-c", "env " + environment + " \"$1\" 'int x' \"$2\" >" + to, "sh",
                   PLINTH_DUMP, Path("bad")});
        EXPECT_EQ(tool.process.WaitForProcess(), 1);
        if (to != name)
            return ReadFile(to);
        char bytes[1000];
        return std::string(bytes, static_cast<std::size_t>(read(terminal, bytes, sizeof bytes)));
    };
    EXPECT_NE(shown("-u NO_COLOR TERM=xterm", name).find('\033'), std::string::npos);
    EXPECT_NE(shown("NO_COLOR= TERM=xterm", name).find('\033'), std::string::npos);
    EXPECT_EQ(shown("NO_COLOR=1 TERM=xterm", name).find('\033'), std::string::npos);
    EXPECT_EQ(shown("-u NO_COLOR TERM=dumb", name).find('\033'), std::string::npos);
    EXPECT_EQ(shown("-u NO_COLOR TERM=xterm", Path("file")).find('\033'), std::string::npos);
    close(keptOpen);
    close(terminal);
}

TEST_F(ToolTest, RunMovesStreamsAndPassesTheCodeOn) {
    const std::string megabyte(1 << 20, 'x');
    Write("in", megabyte);
    const char* const script = "head -c 1048576 /dev/zero >&2; cat; echo end; exit 7";
    const std::string said = Tool({PLINTH_RUN, "--input", Path("in"), "--output", Path("out"),
                                   "--errors", Path("err"), "--", "sh", "-c", script})
                                 .Rest();
    EXPECT_EQ(ReadFile(Path("out")), megabyte + "end\n");
    EXPECT_EQ(ReadFile(Path("err")), std::string(1 << 20, '\0'));
    ExpectFound(said, {"7 plinth-run: exit code 7, ",
                       "1048576 bytes in, 1048580 bytes out, 1048576 bytes of errors\n"});
    Tool({PLINTH_RUN, "-o", Path("both"), "-e", Path("both"), "sh", "-c", "echo a; echo b >&2"})
        .Rest();
    EXPECT_EQ(ReadFile(Path("both")).size(), 4U);
    ExpectFound(Tool({"sh", "-c", "echo through | \"$1\" -q cat", "sh", PLINTH_RUN}).Rest(),
                {"0 through\n"});
    Write("no program", "");
    const struct {
        Strings words;
        const char* expected;
    } rows[] = {
        {{"sh", "-c", "kill -9 $$"}, "137 plinth-run: ended by signal 9 (SIGKILL), 0."},
        {{"sh", "-c", "exit 137"}, "137 plinth-run: exit code 137, "},
        {{"no-such-program"}, "127 plinth-run: no-such-program: errNotFound\n"},
        {{Path("no program")}, "126 plinth-run: "},
        {{"--input", Path("none"), "true"}, "125 plinth-run: "},
        {{"--output", "/dev/full", "echo"}, "125 plinth-run: "},
        {{"--timeout", "soon", "true"}, "125 plinth-run: no time: soon\n"},
        {{"--input", "/dev/null", "-q", "cat"}, "0 "},
    };
    for (const auto& row : rows) {
        Strings words{PLINTH_RUN};
        words.insert(words.end(), row.words.begin(), row.words.end());
        const std::string told = Tool(words).Rest();
        EXPECT_EQ(told.substr(0, std::string(row.expected).size()), row.expected) << told;
    }
}

TEST_F(ToolTest, RunEndsAllThatTakesTooLong) {
    // None of them listens to SIGINT. One has left the session, and one the pipes.
    const char* const script = "trap '' INT; sleep 1000 & echo $!; "
                               "(setsid sleep 1000 & echo $!); "
                               "(sleep 1000 >/dev/null 2>&1 & echo $!); echo $$; wait; sleep 1000";
    Tool tool({PLINTH_RUN, "--timeout", "1", "--grace", "0.2", "sh", "-c", script});
    const Strings ids{tool.Line(), tool.Line(), tool.Line(), tool.Line()};
    ExpectFound(tool.Rest(),
                {"124 ", "plinth-run: time limit reached, ended by signal 9 (SIGKILL), "});
    for (const std::string& id : ids)
        EXPECT_FALSE(Runs(id)) << id;
    ExpectFound(Tool({PLINTH_RUN, "--timeout", "0.2", "sleep", "1000"}).Rest(),
                {"124 plinth-run: time limit reached, ended by signal 2 (SIGINT), 0."});
}

TEST_F(ToolTest, RunHoldsTheLimitWhenNobodyTakesTheOutput) {
    Tool tool({PLINTH_RUN, "-t", "1", "sh", "-c", "echo $$; exec yes"});
    const std::string id = tool.Line();
    for (int attempt = 0; attempt < 3000 && Runs(id); ++attempt)
        usleep(10000);
    EXPECT_FALSE(Runs(id));
    ExpectFound(tool.Rest(), {"124 y\n", "plinth-run: time limit reached, ended by signal 2"});
}

TEST_F(ToolTest, RunNamesWhoHoldsAPipe) {
    const std::string fifo = Path("fifo");
    ASSERT_EQ(std::system(("mkfifo " + fifo).c_str()), 0);
    const std::string script =
        "(sh -c 'echo $$; read line <" + fifo + "; echo bye' 2>/dev/null; :) & exit 3";
    Tool tool({PLINTH_RUN, "sh", "-c", script});
    const std::string id = tool.Line();
    ExpectFound(tool.Line(),
                {"plinth-run: the command has ended, and its output and errors stay open in:"});
    ExpectFound(tool.Line(), {"    ", " sh -c (sh -c 'echo", "(holds output, errors)"});
    ExpectFound(tool.Line(), {"      " + id + " sh -c echo $$; read line <", "  (holds output)"});
    std::ofstream(fifo) << "go\n";
    ExpectFound(tool.Rest(), {"3 bye\nplinth-run: exit code 3, "});
}

TEST_F(ToolTest, RunPassesSignalsOn) {
    const char* const script = "trap 'echo interrupted; exit 5' INT; echo ready; "
                               "while :; do sleep 0.02; done";
    Tool tool({PLINTH_RUN, "sh", "-c", script});
    EXPECT_EQ(tool.Line(), "ready");
    tool.process.Interrupt();
    ExpectFound(tool.Rest(),
                {"130 interrupted\nplinth-run: stopped by signal 2 (SIGINT), exit code 5, "});
}

/// Runs a script at a terminal, where Ctrl-C is typed as soon as a word is said. What was said in
/// all, with the status in front.
std::string Interrupted(const char* script, const char* word) {
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0)
        execl(PLINTH_RUN, "plinth-run", "--grace", "0", "sh", "-c", script, nullptr);
    std::string said;
    char bytes[1000];
    for (ssize_t got; (got = read(terminal, bytes, sizeof bytes)) > 0;) {
        const bool before = said.find(word) == std::string::npos;
        said.append(bytes, static_cast<std::size_t>(got));
        if (before && said.find(word) != std::string::npos) {
            EXPECT_EQ(write(terminal, "\x03", 1), 1);
        }
    }
    close(terminal);
    int status = 0;
    waitpid(child, &status, 0);
    return std::to_string(WEXITSTATUS(status)) + ' ' + said;
}

TEST_F(ToolTest, RunLeavesTheKeyboardToTheCommand) {
    if (!AreTerminalsHere())
        GTEST_SKIP() << "/dev/pts is not mounted";
    const std::string said =
        Interrupted("trap 'echo told once' INT; echo ready; "
                    "n=0; while [ $n -lt 30 ]; do n=$((n+1)); sleep 0.02; done; exit 4",
                    "ready");
    ExpectFound(said, {"4 ready", "told once", "plinth-run: exit code 4, "});
    EXPECT_EQ(said.find("told once"), said.rfind("told once")) << said;
}

TEST_F(ToolTest, RunHeedsTheKeyboardOnceTheCommandHasEnded) {
    if (!AreTerminalsHere())
        GTEST_SKIP() << "/dev/pts is not mounted";
    // A shell has what it starts in the background ignore SIGINT.
    ExpectFound(Interrupted("sleep 1000 & exit 4", "stay open in:"),
                {"130 ", "plinth-run: stopped by signal 2 (SIGINT), exit code 4, "});
}

} // namespace
