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

#include <execproc.h>
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
    oPipeStream* serverEnd = nullptr;
    iPipeStream* ourEnd = nullptr;
    if (CreatePipeSt(&serverEnd, &ourEnd) != errOK)
        return Fail(errName(errMapError()));
    const std::unique_ptr<iPipeStream, PipeDeleter> serverSays(ourEnd);

    ExecProcess server(Quoted(argv[1]).c_str(), 2);
    server.AssignCout(oAssignableStream(*serverEnd));
    const bool started = server.Start();
    const errstatus reason = errMapError();
    DeletePipe(serverEnd); // the child has its own; with ours open the pipe would never end
    if (!started)
        return Fail(std::string(argv[1]) + ": " + errName(reason));
    std::string line;
    if (!std::getline(*serverSays, line)) {
        server.WaitForProcess();
        return Fail("the server ended before it listened");
    }
    std::cout << "the server says: " << line << std::endl;

    std::string command = Quoted(argv[2]) + ' ' + line.substr(line.rfind(' ') + 1);
    if (argc > 3)
        command += ' ' + Quoted(argv[3]);
    ExecProcess client(command.c_str(), 0);
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
    server.Interrupt();
    server.WaitForProcess();
    return static_cast<int>(code);
}
