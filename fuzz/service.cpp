// SPDX-License-Identifier: MIT
//
// A whole conversation with the file service over a real folder: requests, blocks of files and raw
// bytes, as the input says. Whatever is asked for, what lies outside stays as it is, every answer
// is a whole message, and no descriptor is left open.
#include "examples/fileserv/service.h"

#include <clocale>
#include <filesystem>
#include <fstream>
#include <memory>

#include "fuzz/support/require.h"
#include "tests/scripted.h"
#include "tests/support.h"

namespace {

namespace fs = std::filesystem;

/// A client that has said all there is, and waits for the answers.
class Client : public Scripted {
public:
    using Scripted::Scripted;
    int SelectWait(fd_set*, fd_set*, fd_set*, timeval*) override { return 1; }
};

void Write(const fs::path& file, const char* text) {
    std::ofstream(file) << text;
}

/// The folder that is served, afresh, with ways out of it and one file there.
struct Ground {
    Ground() {
        fs::create_directory(temp.path / "outside");
        Write(temp.path / "outside" / "secret", "secret");
    }
    void Lay() const {
        fs::remove_all(served);
        fs::create_directories(served / "a" / "b");
        Write(served / "a" / "file", "some text");
        fs::create_symlink("../outside", served / "out");
        fs::create_symlink("../../outside/secret", served / "a" / "link");
        fs::create_symlink(".", served / "a" / "here");
    }
    void RequireUntouched() const {
        std::string secret;
        std::ifstream(temp.path / "outside" / "secret") >> secret;
        Require(secret == "secret" && Entries(temp.path / "outside") == 1);
        Require(Entries(temp.path) == 2);
    }
    static std::ptrdiff_t Entries(const fs::path& folder) {
        return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    }

    support::TempFolder temp;
    const fs::path served = temp.path / "served";
};

void Send(std::string& bytes, const dsXArray<char>& message) {
    const unsigned int size = message.GetSize();
    for (unsigned shift = 32; shift != 0; shift -= 8)
        bytes += static_cast<char>(size >> (shift - 8));
    bytes.append(message.GetDataPtr(), size);
}

std::string Said(Input& input) {
    std::string bytes;
    while (!input.IsEmpty()) {
        const unsigned kind = input.Byte();
        dsXArray<char> message(nullptr);
        fileserv::Request request;
        if (kind % 16 < 12) {
            request.operation = static_cast<int>(kind % 16);
            request.path = input.Text();
            request.argument = kind < 128 ? "" : input.Text();
            fileserv::EncodeRequest(request, message);
        } else if (kind % 16 == 12) {
            const std::string block = input.Block(input.Byte());
            Encoder(message).out << static_cast<int>(kind < 128 ? errOK : errIO);
            message.Append(static_cast<unsigned int>(block.size()), block.data());
        } else {
            bytes += input.Block(kind / 16);
            continue;
        }
        Send(bytes, message);
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Ground ground;
    static const fs::path home = fs::current_path();
    std::setlocale(LC_ALL, "C.UTF-8");
    if (size > 1000)
        return 0;
    ground.Lay();
    const long open = support::OpenDescriptors();
    Input input(data, size);
    auto socket = std::make_unique<Client>(Said(input));
    const Client& client = *socket;
    {
        fileserv::ServedFolder folder;
        Require(folder.Open(ground.served.c_str()) == errOK);
        fileserv::FileService service(folder);
        fileserv::Connection connection(std::move(socket), std::chrono::seconds(60), nullptr);
        service.Serve(connection);
        fs::current_path(home);

        const std::string& answers = client.output;
        std::size_t at = 0;
        while (at < answers.size()) {
            Require(answers.size() - at >= 8);
            std::size_t length = 0;
            for (std::size_t i = 0; i < 4; ++i)
                length = length << 8 | static_cast<unsigned char>(answers[at + i]);
            Require(length >= fileserv::statusBytes);
            at += 4 + length;
        }
        Require(at == answers.size());
    }
    Require(support::OpenDescriptors() == open);
    ground.RequireUntouched();
    return 0;
}
