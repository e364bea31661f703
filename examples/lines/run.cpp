// SPDX-License-Identifier: MIT
//
// lines_run SERVER CLIENT [FILE]: starts the server as a child, reads from a pipe on which port it
// listens, and runs the client against it. The server is asked to end when the client has. The
// status is the client's.
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <outside/varnholt/service.h>

#include "../children.h"

namespace {

int Fail(const std::string& what) {
    std::cerr << "lines_run: " << what << '\n';
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3)
        return Fail("SERVER CLIENT [FILE]");
    zelService service; // a signal ends the two children as well
    service.StopOnSignal(SIGINT);
    service.StopOnSignal(SIGTERM);
    TalkingChild server({argv[1]});
    if (server.status != errOK)
        return Fail(std::string(argv[1]) + ": " + errName(server.status));
    std::string line;
    if (!std::getline(*server.says, line)) {
        server.process.WaitForProcess();
        return Fail("the server ended before it listened");
    }
    std::cout << "the server says: " << line << std::endl;

    std::vector<std::string> command{argv[2], std::to_string(PortIn(line))};
    command.insert(command.end(), argv + 3, argv + argc);
    ExecProcess client(CommandLine(command).c_str(), 0);
    long code = EXIT_FAILURE;
    if (client.Start()) {
        const std::unique_ptr<zelEvent> end(client.GetExitEvent());
        while (!end->Wait(100))
            if (service.IsStopSignaled())
                client.Interrupt();
        code = client.WaitForProcess();
    } else {
        Fail(std::string(argv[2]) + ": " + errName(errMapError()));
    }
    server.process.Interrupt();
    server.process.WaitForProcess();
    return static_cast<int>(code);
}
