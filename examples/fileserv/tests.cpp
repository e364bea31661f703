// SPDX-License-Identifier: MIT
//
// The file service as its users see it.
#include "testing.h"

#include <thread>

#include <sys/stat.h>
#include <unistd.h>

#include "mirror.h"
#include "testing/hostlistener.h"

namespace fileserv {

TEST_F(FileServiceTest, AnswersEveryRequest) {
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

    // A size that needs more than 32 bits, of a file that takes no room. The library has it in a
    // `long`.
    WriteFile(served / "huge", "");
    fs::resize_file(served / "huge", 5368709121);
    Entry entry;
    ASSERT_EQ(client->GetEntry("huge", entry), errOK);
    EXPECT_EQ(entry.size, sizeof(long) > 4 ? 5368709121 : 2147483647);
    EXPECT_LT(std::abs(entry.modified - time(nullptr)), 100);
    EXPECT_EQ(client->GetEntry("a|none", entry), errNotFound);
    fs::remove(served / "huge");

    // Nobody writes to this pipe, and nobody waits for it.
    ASSERT_EQ(mkfifo((served / "pipe").c_str(), 0600), 0);
    Sum sum;
    EXPECT_EQ(client->GetSum("pipe", sum), errNotSupported);
    for (const bool out : {true, false})
        EXPECT_EQ(out ? client->FetchFile("pipe", (temp.path / "copy").string(), nullptr)
                      : client->PutFile((served / "pipe").string(), "copy", nullptr),
                  errNotSupported);
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

TEST_F(FileServiceTest, MirrorsATreeBothWays) {
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

TEST_F(FileServiceTest, TheClientListsWhatItCannotMirror) {
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

TEST_F(FileServiceTest, TheClientKeepsWhatItHasWhenTheServerGoes) {
    Server server(served);
    const auto client = server.Client();
    const fs::path out = temp.path / "out";
    fs::create_directories(out / "a");
    WriteFile(out / "a" / "file", "old");
    Sum sum;
    EXPECT_EQ(client->GetSum("a|file", sum), errOK);
    server.Signal(SIGKILL);
    EXPECT_EQ(server.Wait(), 128 + SIGKILL);
    EXPECT_NE(client->FetchFile("a|file", (out / "a" / "file").string(), nullptr), errOK);
    Progress progress(false);
    const Strings none;
    Mirror(*client, progress, none).Out("", out.string());
    EXPECT_FALSE(progress.Report());
    EXPECT_EQ(progress.Result().failures.size(), 2U);
    EXPECT_EQ(TreeOf(out),
              (std::map<std::string, std::string>{{"a", "(folder)"}, {"a/file", "old"}}));
}

TEST_F(FileServiceTest, TwoServersShareTheNamedLocks) {
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

TEST_F(FileServiceTest, StopsCleanlyWhileAClientIsThere) {
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

TEST_F(FileServiceTest, SeveralServersWorkBehindABalancer) {
    if (std::system("command -v haproxy >/dev/null") != 0)
        GTEST_SKIP() << "HAProxy is not installed";
    const Server one(served), two(served);
    int port;
    {
        const Server free(served); // a port that was free a moment ago
        port = free.port;
    }
    hostpicture::Announce("environment");
    setenv("FILESERV_PORT", std::to_string(port).c_str(), 1);
    setenv("FILESERV_ONE", std::to_string(one.port).c_str(), 1);
    setenv("FILESERV_TWO", std::to_string(two.port).c_str(), 1);
    const std::string page = ReadFile(FILESERV_PAGE), fence = "```haproxy\n";
    const std::size_t start = page.find(fence) + fence.size();
    const fs::path configuration = temp.path / "haproxy.cfg";
    WriteFile(configuration, page.substr(start, page.find("```", start) - start));
    const Program balancer({"haproxy", "-db", "-f", configuration.string()});
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

} // namespace fileserv
