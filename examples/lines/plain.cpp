// SPDX-License-Identifier: MIT
//
// lines_plain [PORT]: answers lines of text in lines of text, so that `nc localhost PORT` is a
// client. Otherwise like lines_server.
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include <psock.h>
#include <sockstream.h>

#include "record.h"

namespace {

class PlainServer : public psockService {
public:
    using psockService::psockService;

    /// One client, until it closes its side of the connection.
    bool Execute(psockStream* stream) override {
        const std::unique_ptr<psockStream> client(stream);
        if (!client)
            return false;
        ioSockStream lines(*client);
        for (std::string line; std::getline(lines, line);) {
            lines.clear(); // the last line may end without a line feed
            Answer answer;
            if (line.find('\0') == line.npos)
                Describe(line.c_str(), answer);
            // No flush: what waits goes out before a read has to wait.
            if (*answer.quoted != '\0')
                lines << answer.checksum << ' ' << answer.quoted << '\n';
            else
                lines << "no text here\n";
        }
        return false; // go on with the next client
    }
};

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, ""); // the text of this program is in the user's encoding
    zelService service;
    service.StopOnSignal(SIGINT);
    service.StopOnSignal(SIGTERM);
    PlainServer server(service, 100);
    if (!server.Initialize(argc > 1 ? std::atoi(argv[1]) : SystemAssigned)) {
        std::cerr << "lines_plain: cannot listen: " << errName(errMapError()) << '\n';
        return EXIT_FAILURE;
    }
    std::cout << "listening on port " << server.GetPort() << std::endl;
    server.Run();
    return EXIT_SUCCESS;
}
