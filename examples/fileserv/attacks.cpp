// SPDX-License-Identifier: MIT
//
// The file service as its enemies see it: whatever they send, and whenever they go.
#include "testing.h"

#include <atomic>
#include <thread>

#include "mirror.h"

namespace fileserv {

namespace {

/// A server that lists what no honest one would, and gives the same bytes for any file.
class Impostor : public psockBlockingServer {
public:
    bool Execute(psockStream* stream) override {
        const std::unique_ptr<psockStream> client(stream);
        dsXArray<char> message(nullptr);
        for (Request request; Read(*client, message) == errOK; message.Clear()) {
            DecodeRequest(message, request);
            Encoder answer(message);
            answer.out << static_cast<int>(errOK);
            if (request.operation == List) {
                answer.out << static_cast<int>(names.size()) + 1;
                PutEntry(answer.out, {Unnameable, "\033[31m", 0, 0});
                for (const std::string& name : names)
                    PutEntry(answer.out, {File, name, 3, 0});
            }
            Write(*client, message);
            if (request.operation == Fetch) {
                message.Append(3, "bad");
                Write(*client, message);
                message.Resize(statusBytes);
                Write(*client, message);
            }
        }
        return true;
    }

    const Strings names{"../evil",      "/evil", "..",          ".",     "",
                        "a/../../evil", "|evil", ".fileserv-1", "honest"};
};

} // namespace

TEST_F(FileServiceTest, NothingOutsideCanBeReached) {
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
    for (const Entry& entry : entries) {
        kinds[entry.name] = entry.kind;
        EXPECT_EQ(entry.modified == 0, entry.kind == Link); // nor anything told of what is there
    }
    EXPECT_EQ(kinds,
              (std::map<std::string, int>{{"a", Folder}, {"link", Link}, {"dangling", Link}}));
}

TEST_F(FileServiceTest, AFolderSwappedForALinkLeadsNowhere) {
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

TEST_F(FileServiceTest, AFileSwappedForALinkLeadsNowhere) {
    const Server server(served);
    const fs::path file = served / "a" / "file", next = served / "a" / "next";
    const std::string content = ReadFile(file), copy = (temp.path / "copy").string();
    std::atomic<bool> over{false};
    std::thread swapper([&] {
        while (!over) {
            fs::create_symlink(outside / "secret", next);
            fs::rename(next, file);
            WriteFile(next, content);
            fs::rename(next, file);
        }
    });
    const auto client = server.Client();
    std::map<int, int> seen;
    for (int i = 0; i < 1000; ++i) {
        Sum sum;
        const errstatus status = client->FetchFile("a|file", copy, nullptr);
        ++seen[status];
        if (status == errOK) {
            EXPECT_EQ(ReadFile(copy), content);
        }
        if (client->GetSum("a|file", sum) == errOK) {
            EXPECT_EQ(sum.size, static_cast<long long>(content.size()));
        }
    }
    over = true;
    swapper.join();
    EXPECT_EQ(seen[errOK] + seen[errNoAccess], 1000);
}

TEST_F(FileServiceTest, NonsenseIsAnErrorAndTheServerServesOn) {
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
        EXPECT_EQ(StatusOf(*stream), errInvalid) << Quoted(payload.c_str());
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

TEST_F(FileServiceTest, WhoKeepsTheServerWaitingIsSentAway) {
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

TEST_F(FileServiceTest, ABrokenUploadLeavesTheOldFile) {
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

TEST_F(FileServiceTest, NoServerWritesOutsideTheTarget) {
    Impostor server;
    ASSERT_TRUE(server.Initialize(SystemAssigned));
    std::thread serving([&] { server.Run(); });
    auto client = RemoteFolder::Connect("localhost", server.GetPort(), nullptr);
    const auto before = TreeOf(temp.path);
    Progress progress(false);
    const Strings none;
    Mirror(*client, progress, none).Out("", (temp.path / "out").string());
    client.reset();
    serving.join();
    EXPECT_EQ(progress.Result().failures.size(), 10U); // an answer without a checksum is one more
    for (const std::string& failure : progress.Result().failures)
        EXPECT_EQ(failure.find('\033'), failure.npos);
    auto after = TreeOf(temp.path);
    EXPECT_EQ(after["out/honest"], "bad");
    after.erase("out");
    after.erase("out/honest");
    EXPECT_EQ(after, before);
}

} // namespace fileserv
