// SPDX-License-Identifier: MIT
//
// fileserv_run SERVER FOLDER SCRATCH [-exclude PATTERN]...: starts a server for the folder, mirrors
// all of it into SCRATCH/out, and from there into SCRATCH/served, which a second server offers.
// Every file is verified on both ways. Prints what was moved and how fast, and where the time of
// all three programs went. The status is 1 if anything failed.
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include <pfufs.h>

#include "../children.h"
#include "../terminal.h"
#include "mirror.h"
#include "remote.h"

namespace {

using Names = std::vector<std::string>;

/// A server that runs as long as the object lives.
class ServerChild {
public:
    ServerChild(const std::string& program, const std::string& folder) : child({program, folder}) {
        std::string line;
        if (child.status == errOK && std::getline(*child.says, line))
            port = PortIn(line);
    }
    ServerChild(const ServerChild&) = delete;
    ServerChild& operator=(const ServerChild&) = delete;
    ~ServerChild() { Stop(); }

    [[nodiscard]] int Port() const { return port; }

    /// Its last lines.
    Names Stop() {
        Names lines;
        if (child.status != errOK || child.says == nullptr)
            return lines;
        child.process.Interrupt();
        for (std::string line; std::getline(*child.says, line);)
            lines.push_back(line);
        child.process.WaitForProcess();
        child.says.reset();
        return lines;
    }

private:
    TalkingChild child;
    int port = 0;
};

/// One way: what was done, and what the server says of its time.
struct Way {
    fileserv::Tally tally;
    Names server;
};

bool Go(const Names& paths, const Names& excluded, bool out, zelService& service, Way& way) {
    const std::string &program = paths[0], &served = paths[1], &local = paths[2];
    ServerChild server(program, served);
    const auto remote = server.Port() != 0
                            ? fileserv::RemoteFolder::Connect("localhost", server.Port(), &service)
                            : nullptr;
    if (remote == nullptr) {
        std::cerr << "fileserv_run: no server for " << served << '\n';
        return false;
    }
    fileserv::Progress progress(IsTerminal(STDERR_FILENO));
    fileserv::Mirror mirror(*remote, progress, excluded);
    if (out)
        mirror.Out("", local);
    else
        mirror.Into(local, "");
    const bool good = progress.Report();
    way.tally = progress.Result();
    way.server = server.Stop();
    return good;
}

void PrintServer(const char* name, const Way& way) {
    std::cout << name << '\n';
    for (const std::string& line : way.server)
        std::cout << "    " << line << '\n';
}

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, ""); // names of files are in the user's encoding
    Names excluded;
    bool good = argc >= 4 && argc % 2 == 0;
    for (int i = 4; good && i < argc; i += 2) {
        good = std::string(argv[i]) == "-exclude";
        excluded.emplace_back(argv[i + 1]);
    }
    if (!good) {
        std::cerr << "usage: fileserv_run SERVER FOLDER SCRATCH [-exclude PATTERN]...\n";
        return 2;
    }
    zelService service;
    service.StopOnSignal(SIGINT);
    service.StopOnSignal(SIGTERM);
    const std::string scratch = argv[3], copy = scratch + "/out", second = scratch + "/served";
    const errstatus made = pfuFS::pfuMakeDirRec(second.c_str());
    if (made != errOK) {
        std::cerr << "fileserv_run: " << second << ": " << errName(made) << '\n';
        return EXIT_FAILURE;
    }

    Way out, into;
    std::cout << "out of " << argv[2] << std::endl;
    good = Go({argv[1], argv[2], copy}, excluded, true, service, out);
    if (service.IsStopSignaled())
        return EXIT_FAILURE;
    std::cout << "into a second served folder" << std::endl;
    good = Go({argv[1], second, copy}, {}, false, service, into) && good;
    good = good && out.tally.files == into.tally.files && out.tally.bytes == into.tally.bytes &&
           out.tally.folders == into.tally.folders;

    std::cout << (good ? "all of it verified by checksum\n"
                       : "NOT all of it was mirrored: see above\n")
              << "\nwhere the time went\n";
    PrintServer("the server, out", out);
    PrintServer("the server, into", into);
    std::cout << "the client, both ways\n"; // the lines of this process come at its end
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
