// SPDX-License-Identifier: MIT
//
// The file service as its users and its enemies see it: real servers in processes of their own.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <execproc.h>
#include <psockmsg.h>

#include "../children.h"
#include "mirror.h"
#include "names.h"
#include "remote.h"
#include "tests/support.h"

namespace {

using namespace fileserv;
namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

void WriteFile(const fs::path& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string RandomBytes(std::size_t count) {
    static std::mt19937 random(4711);
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [] { return static_cast<char>(random()); });
    return bytes;
}

/// Every path below a folder, with its content if it is a file.
std::map<std::string, std::string> TreeOf(const fs::path& folder) {
    std::map<std::string, std::string> tree;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        tree[entry.path().lexically_relative(folder).string()] =
            entry.is_directory() ? "(folder)" : ReadFile(entry.path());
    return tree;
}

/// A program that runs in a process of its own, told by its output. It says its process id first.
class Program {
public:
    explicit Program(const Strings& words)
        : process(("sh -c 'echo $$; exec \"$@\"' sh " + Line(words)).c_str(), 2) {
        oPipeStream* theirEnd = nullptr;
        iPipeStream* ourEnd = nullptr;
        EXPECT_EQ(CreatePipeSt(&theirEnd, &ourEnd), errOK);
        says.reset(ourEnd);
        process.AssignCout(oAssignableStream(*theirEnd));
        EXPECT_TRUE(process.Start());
        DeletePipe(theirEnd);
        id = std::stoi(NextLine());
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() {
        if (process.IsAppAlive())
            process.Kill();
        process.WaitForProcess();
    }

    std::string NextLine() {
        std::string line;
        std::getline(*says, line);
        return line;
    }
    std::string Rest() { return {std::istreambuf_iterator<char>(*says), {}}; }
    void Signal(int number) const { kill(id, number); }
    long Wait() { return process.WaitForProcess(); }

private:
    static std::string Line(const Strings& words) {
        std::string line;
        for (const std::string& word : words)
            line += ::Quoted(word.c_str()) + ' ';
        return line;
    }

    ExecProcess process;
    std::unique_ptr<iPipeStream, PipeDeleter> says;
    pid_t id = 0;
};

class Server : public Program {
public:
    explicit Server(const fs::path& folder, const char* seconds = "20")
        : Program({FILESERV_SERVER, folder.string(), "0", seconds}) {
        const std::string line = NextLine();
        port = std::atoi(line.substr(line.rfind(' ') + 1).c_str());
    }

    [[nodiscard]] std::unique_ptr<RemoteFolder> Client() const {
        auto client = RemoteFolder::Connect("localhost", port, nullptr);
        EXPECT_NE(client, nullptr);
        return client;
    }
    [[nodiscard]] std::unique_ptr<psockStream> RawClient() const {
        return std::unique_ptr<psockStream>(psockServer::Connect("localhost", port));
    }
    /// Whether the next client is served, as soon as the present one is gone.
    [[nodiscard]] bool ServesOn() const {
        Entry entry;
        return Client()->GetEntry("", entry) == errOK;
    }

    int port = 0;
};

/// A served folder with a neighbour that nobody may reach.
class FileService : public testing::Test {
protected:
    FileService() {
        setlocale(LC_ALL, "");
        fs::create_directories(served / "a" / "b");
        fs::create_directory(outside);
        WriteFile(served / "a" / "file", "content");
        WriteFile(outside / "secret", "secret");
    }
    ~FileService() override {
        EXPECT_EQ(TreeOf(outside), (std::map<std::string, std::string>{{"secret", "secret"}}));
    }

    support::TempFolder temp;
    const fs::path served = temp.path / "served", outside = temp.path / "outside";
};

TEST_F(FileService, AnswersEveryRequest) {
    const Server server(served);
    const auto client = server.Client();
    std::vector<Entry> entries;
    ASSERT_EQ(client->GetListing("", "*", entries), errOK);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].name, "a");
    EXPECT_EQ(entries[0].kind, Folder);
    ASSERT_EQ(client->GetListing("a", "f?l*", entries), errOK);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].size, 7);
    EXPECT_EQ(client->GetListing("a", "", entries), errInvalid);
    EXPECT_EQ(client->GetListing("a|file", "*", entries), errNotDirectory);
    EXPECT_EQ(client->GetListing("none", "*", entries), errNotFound);

    // A size that needs more than 32 bits, of a file that takes no room.
    WriteFile(served / "huge", "");
    fs::resize_file(served / "huge", 5368709121);
    Entry entry;
    ASSERT_EQ(client->GetEntry("huge", entry), errOK);
    EXPECT_EQ(entry.size, 5368709121);
    EXPECT_LT(std::abs(entry.modified - time(nullptr)), 100);
    EXPECT_EQ(client->GetEntry("a|none", entry), errNotFound);
    fs::remove(served / "huge");

    // Nobody writes to this pipe, and nobody waits for it.
    ASSERT_EQ(mkfifo((served / "pipe").c_str(), 0600), 0);
    Sum sum;
    EXPECT_EQ(client->GetSum("pipe", sum), errOK);
    EXPECT_EQ(client->FetchFile("pipe", (temp.path / "copy").string(), nullptr), errOK);
    EXPECT_EQ(ReadFile(temp.path / "copy"), "");
    fs::remove(served / "pipe");

    ASSERT_EQ(client->GetSum("a\\file", sum), errOK);
    EXPECT_EQ(sum.size, 7);
    EXPECT_EQ(sum.checksum, 0x0007FB69U);
    EXPECT_EQ(client->GetSum("a", sum), errIsDirectory);
    EXPECT_EQ(client->FetchFile("a/file", (temp.path / "copy").string(), nullptr), errOK);
    EXPECT_EQ(ReadFile(temp.path / "copy"), "content");
    EXPECT_EQ(client->FetchFile("a/none", (temp.path / "copy").string(), nullptr), errNotFound);
    EXPECT_EQ(ReadFile(temp.path / "copy"), "content");
    EXPECT_EQ(client->PutFile((temp.path / "copy").string(), "a|b|new", nullptr), errOK);
    EXPECT_EQ(ReadFile(served / "a" / "b" / "new"), "content");
    EXPECT_EQ(client->PutFile((temp.path / "copy").string(), "a", nullptr), errIsDirectory);
    EXPECT_EQ(client->PutFile((temp.path / "copy").string(), "none|x", nullptr), errNotFound);

    EXPECT_EQ(client->Do(MakeFolder, "a|c"), errOK);
    EXPECT_EQ(client->Do(MakeFolder, "a|c"), errOK);
    EXPECT_EQ(client->Do(MakeFolder, "a|file"), errExists);
    EXPECT_EQ(client->Do(RemoveFolder, "a|b"), errNotEmpty);
    EXPECT_EQ(client->Do(RemoveFolder, "a|c"), errOK);
    EXPECT_EQ(client->Do(RemoveTree, "a|b"), errOK);
    EXPECT_EQ(client->Do(static_cast<Operation>(77), "a"), errNotSupported);
    EXPECT_EQ(TreeOf(served),
              (std::map<std::string, std::string>{{"a", "(folder)"}, {"a/file", "content"}}));
}

TEST_F(FileService, NothingOutsideCanBeReached) {
    fs::create_symlink(outside, served / "link");
    fs::create_symlink(outside / "secret", served / "a" / "link");
    fs::create_symlink(served, served / "a" / "home");
    fs::create_symlink("nowhere", served / "dangling");
    fs::create_directory(served / ".fileserv");
    const std::string deep = std::string(250, 'd');
    Strings paths{"..",
                  "../outside",
                  "../outside/secret",
                  "a/../../outside/secret",
                  "a|..|..|outside|secret",
                  "a\\..\\..\\outside\\secret",
                  "a/..",
                  ".",
                  "a/.",
                  "./a",
                  (outside / "secret").string(),
                  "/",
                  "|",
                  "\\",
                  "\\etc|passwd",
                  "|etc|passwd",
                  "C:|x",
                  "C:\\x",
                  "a//file",
                  "a/",
                  "|a",
                  ".fileserv",
                  "a/.fileserv-1-1",
                  ".fileserv|gate",
                  "link",
                  "link|secret",
                  "a|link",
                  "a|home",
                  "a|home|link|secret",
                  "dangling",
                  "a/file/x",
                  deep + "/" + deep + "/" + deep + "/" + deep + "/x",
                  std::string(1024, 'x'),
                  std::string(4000, '/'),
                  std::string(300, 'n') + "/x"};
    const Server server(served);
    const auto client = server.Client();
    const auto before = TreeOf(served);
    const std::string copy = (temp.path / "copy").string();
    for (const std::string& path : paths) {
        SCOPED_TRACE(path.substr(0, 60));
        std::vector<Entry> entries;
        Entry entry;
        Sum sum;
        EXPECT_NE(client->GetListing(path, "*", entries), errOK);
        EXPECT_NE(client->GetEntry(path, entry), errOK);
        EXPECT_NE(client->GetSum(path, sum), errOK);
        EXPECT_NE(client->FetchFile(path, copy, nullptr), errOK);
        EXPECT_NE(client->PutFile((outside / "secret").string(), path, nullptr), errOK);
        for (const Operation operation : {MakeFolder, RemoveFolder, RemoveTree, Lock, Unlock})
            if (operation != Lock || path.find_first_of("/|\\.") != std::string::npos) {
                EXPECT_NE(client->Do(operation, path), errOK);
            }
        EXPECT_TRUE(client->IsUsable());
    }
    for (const Operation operation : {RemoveFolder, RemoveTree})
        EXPECT_NE(client->Do(operation, ""), errOK);
    EXPECT_FALSE(fs::exists(copy));
    EXPECT_EQ(TreeOf(served), before);

    std::vector<Entry> entries;
    ASSERT_EQ(client->GetListing("", "*", entries), errOK);
    std::map<std::string, int> kinds;
    for (const Entry& entry : entries)
        kinds[entry.name] = entry.kind;
    EXPECT_EQ(kinds,
              (std::map<std::string, int>{{"a", Folder}, {"link", Link}, {"dangling", Link}}));
}

TEST_F(FileService, AFolderSwappedForALinkLeadsNowhere) {
    const Server server(served);
    const fs::path swapped = served / "a" / "b", aside = served / "a" / "aside";
    std::atomic<bool> over{false};
    std::thread swapper([&] {
        while (!over) {
            fs::rename(swapped, aside);
            fs::create_symlink(outside, swapped);
            fs::remove(swapped);
            fs::rename(aside, swapped);
        }
    });
    const auto client = server.Client();
    const std::string content = (temp.path / "content").string();
    WriteFile(content, "other");
    for (int i = 0; i < 300; ++i) {
        std::vector<Entry> entries;
        client->GetListing("a|b", "*", entries);
        for (const Entry& entry : entries)
            EXPECT_NE(entry.name, "secret");
        Entry entry;
        EXPECT_NE(client->GetEntry("a|b|secret", entry), errOK);
        client->PutFile(content, "a|b|new", nullptr);
        client->Do(MakeFolder, "a|b|folder");
        client->Do(RemoveTree, "a|b|folder");
    }
    over = true;
    swapper.join();
    EXPECT_TRUE(client->IsUsable());
}

/// The answer to some bytes: a status, or 0 if the connection ended without one.
int StatusOf(psockStream& stream) {
    dsXArray<char> answer(nullptr);
    int status = 0;
    if (Read(stream, answer) == errOK)
        Decoder(answer).in >> status;
    return status;
}

std::string Framed(const std::string& payload) {
    dsXArray<char> prefix(nullptr);
    Encoder(prefix).out << static_cast<int>(payload.size());
    return std::string(prefix.GetDataPtr(), prefix.GetSize()) + payload;
}

std::string Bytes(const Request& request) {
    dsXArray<char> message(nullptr);
    EncodeRequest(request, message);
    return {message.GetDataPtr(), message.GetSize()};
}

TEST_F(FileService, NonsenseIsAnErrorAndTheServerServesOn) {
    const Server server(served);
    const std::string good = Bytes({Stat, "a|file", ""});
    ASSERT_EQ(good, std::string("\0\0\0\2\0\0\0\6a|file\0\0\0\0", 18));
    std::string zeroInside = good, tooLong = good, notText = good, nullText = good;
    zeroInside[9] = '\0';
    tooLong[7] = '\7';
    notText[9] = '\xFF';
    nullText.replace(14, 4, "\xFF\xFF\xFF\xFF");
    const Strings wrong{"",
                        std::string(4, '\0'),
                        zeroInside,
                        tooLong,
                        notText,
                        nullText,
                        good + "x",
                        good + good,
                        std::string(12, '\xFF'),
                        RandomBytes(100),
                        std::string("\0\0\0\2\x7F\xFF\xFF\xFF", 8) + "abc",
                        RandomBytes(16000)};
    const auto stream = server.RawClient();
    for (const std::string& payload : wrong) {
        const std::string sent = Framed(payload);
        ASSERT_EQ(Write(*stream, sent.data(), static_cast<int>(sent.size())), errOK);
        EXPECT_EQ(StatusOf(*stream), errInvalid) << fileserv::Quoted(payload.c_str());
    }
    const std::string negative("\x80\0\0\0", 4), right = Framed(good);
    ASSERT_EQ(Write(*stream, negative.data(), 4), errOK);
    EXPECT_EQ(StatusOf(*stream), errInvalid);
    ASSERT_EQ(Write(*stream, right.data(), static_cast<int>(right.size())), errOK);
    EXPECT_EQ(StatusOf(*stream), errOK);
    stream->CloseSocket();

    // Clients that vanish at every place of a request, and one that promises too much.
    for (std::size_t length = 0; length < right.size(); ++length)
        Write(*server.RawClient(), right.data(), static_cast<int>(length));
    const auto liar = server.RawClient();
    const std::string lie = "\x7F\xFF\xFF\xFF" + RandomBytes(largestRequest);
    Write(*liar, lie.data(), static_cast<int>(lie.size()));
    EXPECT_EQ(StatusOf(*liar), 0);
    EXPECT_TRUE(server.ServesOn());
}

TEST_F(FileService, WhoKeepsTheServerWaitingIsSentAway) {
    WriteFile(served / "large", "");
    fs::resize_file(served / "large", 64 << 20); // more than the system buffers
    const Server server(served, "1");
    const auto silent = server.RawClient();
    const std::string half = Framed(Bytes({Stat, "a", ""})).substr(0, 10);
    Write(*silent, half.data(), static_cast<int>(half.size()));
    EXPECT_TRUE(server.ServesOn());
    const auto greedy = server.RawClient(); // wants a file and reads none of it
    const std::string wish = Framed(Bytes({Fetch, "large", ""}));
    Write(*greedy, wish.data(), static_cast<int>(wish.size()));
    EXPECT_TRUE(server.ServesOn());
}

TEST_F(FileService, ABrokenUploadLeavesTheOldFile) {
    const Server server(served);
    const auto before = TreeOf(served);
    const std::string start = Framed(Bytes({Put, "a|file", ""}));
    const std::string block = Framed(std::string("\0\0\0\1", 4) + RandomBytes(largestBlock));
    const std::string givenUp = Framed(std::string("\0\0\0\x17", 4));
    // The client goes in the middle of a block, goes between two, says that it cannot go on, and
    // sends what is no block.
    for (const std::string& end : {block.substr(0, 70000), std::string(), givenUp, Framed("abc")}) {
        const auto client = server.RawClient();
        ASSERT_EQ(Write(*client, start.data(), static_cast<int>(start.size())), errOK);
        ASSERT_EQ(StatusOf(*client), errOK);
        const std::string rest = block + end;
        ASSERT_EQ(Write(*client, rest.data(), static_cast<int>(rest.size())), errOK);
        if (end == givenUp) {
            EXPECT_EQ(StatusOf(*client), errIO);
        }
        client->CloseSocket();
        EXPECT_TRUE(server.ServesOn());
        EXPECT_EQ(TreeOf(served), before);
    }
}

TEST_F(FileService, MirrorsATreeBothWays) {
    for (const char* name : {"empty", "B\xC3\xA4r", "\xF0\x9F\x98\x80", " blank ", "new\nline",
                             "-x", "quote'\"", "star*?", "~", "%d", "C:"}) {
        fs::create_directory(served / "a" / name);
        WriteFile(served / "a" / name / name, name);
    }
    fs::create_directories(served / "nothing" / "in" / "it");
    fs::create_directories(served / "excluded" / "below");
    for (const int size : {0, 1, largestBlock - 1, largestBlock, largestBlock + 1, 5 << 20})
        WriteFile(served / std::to_string(size), RandomBytes(static_cast<std::size_t>(size)));
    auto expected = TreeOf(served);
    expected.erase("excluded");
    expected.erase("excluded/below");

    const fs::path out = temp.path / "out", again = temp.path / "again";
    const Strings none, pattern{"nomatch", "excl*d"};
    fs::create_directory(again);
    {
        const Server server(served);
        const auto client = server.Client();
        Progress progress(false);
        Mirror(*client, progress, pattern).Out("", out.string());
        EXPECT_TRUE(progress.Report());
        EXPECT_EQ(TreeOf(out), expected);
        EXPECT_EQ(progress.Result().files + progress.Result().folders,
                  static_cast<int>(expected.size()) + 1);
    }
    WriteFile(again / "1", "is replaced");
    const Server server(again);
    const auto client = server.Client();
    Progress progress(false);
    Mirror(*client, progress, none).Into(out.string(), "");
    EXPECT_TRUE(progress.Report());
    EXPECT_EQ(TreeOf(again), expected);
    Mirror(*client, progress, none).Into((out / "nothing").string(), "new|place");
    EXPECT_TRUE(fs::is_directory(again / "new" / "place" / "in" / "it"));
}

TEST_F(FileService, TheClientListsWhatItCannotMirror) {
    fs::create_symlink(outside, served / "link");
    WriteFile(served / "a|b", "");
    WriteFile(served / "no\xFFtext", "");
    WriteFile(served / "file", "x");
    fs::create_directories(temp.path / "out" / "file"); // in the way
    Server server(served);
    WriteFile(temp.path / "words", "localhost\n" + std::to_string(server.port) + "\n");
    const std::string words = (temp.path / "words").string();
    Program client(
        {FILESERV_CLIENT, "-argfile", words, "mirror-out", "", (temp.path / "out").string()});
    EXPECT_EQ(client.Wait(), 1);
    const std::string said = client.Rest();
    for (const char* part : {"1 files, 3 folders, 7 bytes", ", 4 failed\n", "failed: link: ",
                             "failed: file: errIsDirectory\n", "\"a|b\" cannot travel\n",
                             "text\" cannot travel\n", "checksums: 1 times"})
        EXPECT_NE(said.find(part), std::string::npos) << part << "\n" << said;

    fs::rename(temp.path / "out", temp.path / "in");
    fs::create_symlink(outside, temp.path / "in" / "link");
    WriteFile(temp.path / "in" / "a\\b", "");
    WriteFile(temp.path / "in" / "no\xFFtext", "");
    Program into(
        {FILESERV_CLIENT, "-argfile", words, "mirror-into", (temp.path / "in").string(), "copy"});
    EXPECT_EQ(into.Wait(), 1);
    EXPECT_NE(into.Rest().find(", 3 failed\n"), std::string::npos);
    Program unreachable({FILESERV_CLIENT, "localhost", "1", "list"});
    EXPECT_EQ(unreachable.Wait(), 1);
    Program wrong({FILESERV_CLIENT, "-argfile", words, "nothing"});
    EXPECT_EQ(wrong.Wait(), 2);
}

TEST_F(FileService, TwoServersShareTheNamedLocks) {
    const Server one(served), two(served);
    auto first = one.Client();
    const auto second = two.Client();
    EXPECT_EQ(first->Do(Lock, "name"), errOK);
    EXPECT_EQ(first->Do(Lock, "name"), errOK); // held already
    EXPECT_EQ(first->Do(Lock, "other"), errOK);
    EXPECT_EQ(second->Do(Lock, "name"), errShared);
    EXPECT_EQ(second->Do(Unlock, "name"), errNotFound);
    EXPECT_EQ(first->Do(Unlock, "name"), errOK);
    EXPECT_EQ(second->Do(Lock, "name"), errOK);
    EXPECT_EQ(first->Do(Lock, "name"), errShared);
    EXPECT_EQ(second->Do(Lock, "other"), errShared);
    first.reset(); // goes, and its locks with it
    EXPECT_TRUE(one.ServesOn());
    EXPECT_EQ(second->Do(Lock, "other"), errOK);

    // A command that runs under a lock: the second one starts when the first has ended.
    const std::string log = (temp.path / "log").string();
    const Strings script{"sh", "-c", "echo in >>" + log + "; sleep 0.1; echo out >>" + log};
    std::vector<std::unique_ptr<Program>> clients;
    const auto third = std::make_unique<Server>(served);
    for (const int port : {one.port, third->port}) {
        Strings words{FILESERV_CLIENT, "localhost", std::to_string(port), "lock", "third"};
        words.insert(words.end(), script.begin(), script.end());
        clients.push_back(std::make_unique<Program>(words));
    }
    for (const auto& client : clients)
        EXPECT_EQ(client->Wait(), 0);
    EXPECT_EQ(ReadFile(log), "in\nout\nin\nout\n");
}

TEST_F(FileService, StopsCleanlyWhileAClientIsThere) {
    const auto before = TreeOf(served);
    Server server(served);
    const auto client = server.RawClient();
    const std::string start =
        Framed(Bytes({Put, "a|file", ""})) + Framed(std::string("\0\0\0\1", 4) + RandomBytes(1000));
    ASSERT_EQ(Write(*client, start.data(), static_cast<int>(start.size())), errOK);
    ASSERT_EQ(StatusOf(*client), errOK);
    server.Signal(SIGTERM);
    EXPECT_EQ(server.Wait(), 0);
    EXPECT_NE(server.Rest().find("waiting for messages: "), std::string::npos);
    EXPECT_EQ(StatusOf(*client), 0);
    EXPECT_EQ(TreeOf(served), before);
}

TEST_F(FileService, SeveralServersWorkBehindABalancer) {
    if (std::system("command -v haproxy >/dev/null") != 0)
        GTEST_SKIP() << "HAProxy is not installed";
    const Server one(served), two(served);
    int port;
    {
        const Server free(served); // a port that was free a moment ago
        port = free.port;
    }
    setenv("FILESERV_PORT", std::to_string(port).c_str(), 1);
    setenv("FILESERV_ONE", std::to_string(one.port).c_str(), 1);
    setenv("FILESERV_TWO", std::to_string(two.port).c_str(), 1);
    const Program balancer({"haproxy", "-db", "-f", FILESERV_BALANCER_PAGE});
    const auto connect = [&] {
        Entry entry;
        for (int attempt = 0; attempt < 500; ++attempt, usleep(10000))
            if (auto client = RemoteFolder::Connect("127.0.0.1", port, nullptr);
                client != nullptr && client->GetEntry("", entry) == errOK)
                return client;
        return std::unique_ptr<RemoteFolder>();
    };
    auto first = connect(), second = connect(); // one server each, or they would wait for ever
    ASSERT_TRUE(first != nullptr && second != nullptr);
    EXPECT_EQ(first->Do(Lock, "name"), errOK);
    EXPECT_EQ(second->Do(Lock, "name"), errShared);
    std::thread leaving([&] { first.reset(); });
    const auto third = connect(); // waits in the queue until one of the two is gone
    leaving.join();
    ASSERT_NE(third, nullptr);
    Progress progress(false);
    const Strings none;
    Mirror(*third, progress, none).Out("", (temp.path / "out").string());
    EXPECT_TRUE(progress.Report());
}

} // namespace
