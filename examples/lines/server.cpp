// SPDX-License-Identifier: MIT
//
// lines_server [PORT]: answers lines of text until it gets SIGINT or SIGTERM, which it looks for
// while it has no client. Without a port the system chooses one; the first line of output tells
// which.
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>

#include <psock.h>
#include <psockmsg.h>

#include "record.h"

namespace {

class LineServer : public psockService {
public:
    using psockService::psockService;

    /// One client, until it closes the connection.
    bool Execute(psockStream* stream) override {
        const std::unique_ptr<psockStream> client(stream);
        dsXArray<char> message(nullptr);
        while (client && Read(*client, message) == errOK) {
            Request request;
            Answer answer;
            if (Decode(message, request) && Strlen(request.text) == request.length)
                Describe(request.text, answer);
            answer.number = request.number;
            Encode(answer, message);
            if (Write(*client, message) != errOK)
                break;
            message.Clear();
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
    LineServer server(service, 100);
    if (!server.Initialize(argc > 1 ? std::atoi(argv[1]) : SystemAssigned)) {
        std::cerr << "lines_server: cannot listen: " << errName(errMapError()) << '\n';
        return EXIT_FAILURE;
    }
    std::cout << "listening on port " << server.GetPort() << std::endl;
    server.Run();
    return EXIT_SUCCESS;
}
