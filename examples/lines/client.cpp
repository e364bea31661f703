// SPDX-License-Identifier: MIT
//
// lines_client PORT [FILE]: sends each line of a text file (README.md by default) to the server on
// this host and checks each answer. The status is 1 if any answer was wrong or missing. A line that
// cannot be sent as text, because it is none in the user's locale, holds a NUL or is longer than
// 128 MiB, is named.
#include <chrono>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include <unistd.h>

#include <psock.h>
#include <psockmsg.h>

#include "../terminal.h"
#include "record.h"

namespace {

using Clock = std::chrono::steady_clock;

class LineClient {
public:
    explicit LineClient(psockStream& server) : stream(server), message(nullptr) {}

    /// Sends one line and checks the answer. False if the conversation is over.
    bool Send(const std::string& line) {
        ++lines;
        bytes += line.size();
        Request request;
        Answer expected;
        Describe(line.c_str(), expected);
        // The quoted form may be several times as long, and an answer has less than 2 GiB.
        if (line.size() > INT_MAX / 16 || line.find('\0') != std::string::npos ||
            *expected.quoted == '\0') {
            std::cout << "line " << lines << ": cannot be sent as text\n";
            ++unsent;
            return true;
        }
        request.number = lines;
        request.length = static_cast<int>(line.size());
        request.text = line.c_str();
        Encode(request, message);

        const Clock::time_point start = Clock::now();
        errstatus status = Write(stream, message);
        message.Clear();
        if (status == errOK)
            status = Read(stream, message);
        spent += Clock::now() - start;
        Answer answer;
        if (status == errOK && Decode(message, answer) && answer.number == lines &&
            std::strcmp(answer.quoted, expected.quoted) == 0 &&
            answer.checksum == expected.checksum)
            return true;
        ++wrong;
        std::cout << "line " << lines << ": "
                  << (status != errOK          ? errName(status)
                      : *answer.quoted == '\0' ? "the server could not read it"
                                               : "the answer is wrong")
                  << '\n';
        return status == errOK;
    }

    void Progress() const { std::cerr << lines << " lines, " << bytes << " bytes\n"; }

    bool Report() const {
        const double seconds = std::chrono::duration<double>(spent).count();
        const double trips = lines - unsent;
        std::cout << lines << " lines (" << unsent << " not sent, " << wrong << " wrong), " << bytes
                  << " bytes, " << static_cast<long>(seconds > 0 ? trips / seconds : 0)
                  << " round trips/s, mean " << (trips > 0 ? seconds / trips * 1e6 : 0)
                  << " microseconds" << std::endl;
        return wrong == 0;
    }

private:
    psockStream& stream;
    dsXArray<char> message;
    int lines = 0, unsent = 0, wrong = 0;
    unsigned long long bytes = 0;
    Clock::duration spent{};
};

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, ""); // the text of the file is in the user's encoding
    if (argc < 2) {
        std::cerr << "usage: lines_client PORT [FILE]\n";
        return 2;
    }
    const char* path = argc > 2 ? argv[2] : "README.md";
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::cerr << "cannot read " << path << '\n';
        return EXIT_FAILURE;
    }
    const std::unique_ptr<psockStream> server(
        psockServer::Connect("localhost", std::atoi(argv[1])));
    if (!server) {
        std::cerr << "no server on port " << argv[1] << ": " << errName(errMapError()) << '\n';
        return EXIT_FAILURE;
    }
    LineClient client(*server);
    const bool terminal = IsTerminal(STDERR_FILENO);
    Clock::time_point shown = Clock::now();
    bool going = true;
    for (std::string line; going && std::getline(file, line);) {
        going = client.Send(line);
        if (terminal && Clock::now() - shown > std::chrono::seconds(1)) {
            client.Progress();
            shown = Clock::now();
        }
    }
    if (file.bad())
        std::cerr << "cannot read all of " << path << '\n';
    const bool right = client.Report();
    return going && right && !file.bad() ? EXIT_SUCCESS : EXIT_FAILURE;
}
