// SPDX-License-Identifier: MIT
//
// What the tests of the file service share: real servers in processes of their own, a folder to
// offer with a neighbour that nobody may reach, and messages as bytes.
#ifndef PLINTH_EXAMPLES_FILESERV_TESTING_H
#define PLINTH_EXAMPLES_FILESERV_TESTING_H

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <signal.h>

#include <gtest/gtest.h>

#include <psockmsg.h>

#include "../children.h"
#include "names.h"
#include "remote.h"
#include "tests/support.h"

namespace fileserv {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

inline void WriteFile(const fs::path& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

inline std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline std::string RandomBytes(std::size_t count) {
    static std::mt19937 random(4711);
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [] { return static_cast<char>(random()); });
    return bytes;
}

/// Every path below a folder, with its content if it is a file.
inline std::map<std::string, std::string> TreeOf(const fs::path& folder) {
    std::map<std::string, std::string> tree;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        tree[entry.path().lexically_relative(folder).string()] =
            entry.is_directory() ? "(folder)" : ReadFile(entry.path());
    return tree;
}

/// A program that says its process id first, told by its output.
class Program {
public:
    explicit Program(const Strings& words) : child(AfterItsId(words)) {
        EXPECT_EQ(child.status, errOK);
        id = std::stoi(NextLine());
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() {
        if (child.process.IsAppAlive())
            child.process.Kill();
        Wait();
    }

    std::string NextLine() {
        std::string line;
        std::getline(*child.says, line);
        return line;
    }
    std::string Rest() { return {std::istreambuf_iterator<char>(*child.says), {}}; }
    void Signal(int number) const { kill(id, number); }
    long Wait() { return child.process.WaitForProcess(); }

private:
    static Strings AfterItsId(Strings words) {
        words.insert(words.begin(), {"sh", "-c", "echo $$; exec \"$@\"", "sh"});
        return words;
    }

    TalkingChild child;
    pid_t id = 0;
};

class Server : public Program {
public:
    explicit Server(const fs::path& folder, const char* seconds = "20")
        : Program({FILESERV_SERVER, folder.string(), "0", seconds}) {
        port = PortIn(NextLine());
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

/// The answer to some bytes: a status, or 0 if the connection ended without one.
inline int StatusOf(psockStream& stream) {
    dsXArray<char> answer(nullptr);
    int status = 0;
    if (Read(stream, answer) == errOK)
        Decoder(answer).in >> status;
    return status;
}

inline std::string Framed(const std::string& payload) {
    dsXArray<char> prefix(nullptr);
    Encoder(prefix).out << static_cast<int>(payload.size());
    return std::string(prefix.GetDataPtr(), prefix.GetSize()) + payload;
}

inline std::string Bytes(const Request& request) {
    dsXArray<char> message(nullptr);
    EncodeRequest(request, message);
    return {message.GetDataPtr(), message.GetSize()};
}

/// A served folder with a neighbour that nobody may reach.
class FileServiceTest : public testing::Test {
protected:
    FileServiceTest() {
        setlocale(LC_ALL, "");
        fs::create_directories(served / "a" / "b");
        fs::create_directory(outside);
        WriteFile(served / "a" / "file", "content");
        WriteFile(outside / "secret", "secret");
    }
    ~FileServiceTest() override {
        EXPECT_EQ(TreeOf(outside), (std::map<std::string, std::string>{{"secret", "secret"}}));
    }

    const support::LocaleKept kept;
    support::TempFolder temp;
    const fs::path served = temp.path / "served", outside = temp.path / "outside";
};

} // namespace fileserv

#endif
