// SPDX-License-Identifier: MIT
//
// fileserv_server FOLDER [PORT [SECONDS]]: offers a folder to one client after the other until it
// gets SIGINT or SIGTERM, which breaks off what is on its way. Without a port, or with 0, the
// system chooses one; the first line of output tells which. A client that takes longer than
// SECONDS, 60 by default, over one message is sent away. Arguments may stand in a file that
// "-argfile" names. At the end it says where the time went.
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>

#include <cmdargxp.h>
#include <psock.h>

#include "service.h"

namespace {

class FileServer : public psockService {
public:
    FileServer(zelService& stop, const fileserv::ServedFolder& folder, std::chrono::seconds limit)
        : psockService(stop, 100), service(stop), files(folder), patience(limit) {}

    /// The stop is looked at here too: clients that come one after the other leave no pause in
    /// which the loop would look.
    bool Execute(psockStream* stream) override {
        if (std::unique_ptr<psockStream> client(stream); client) {
            fileserv::Connection connection(std::move(client), patience, &service);
            files.Serve(connection);
        }
        return service.IsStopSignaled();
    }

private:
    zelService& service;
    fileserv::FileService files;
    std::chrono::seconds patience;
};

int Serve(int argc, char** argv) {
    if (argc < 2 || argc > 4) {
        std::cerr << "usage: fileserv_server FOLDER [PORT [SECONDS]]\n";
        return 2;
    }
    fileserv::ServedFolder folder;
    const errstatus status = folder.Open(argv[1]);
    if (status != errOK) {
        std::cerr << "fileserv_server: " << argv[1] << ": " << errName(status) << '\n';
        return EXIT_FAILURE;
    }
    zelService service;
    service.StopOnSignal(SIGINT);
    service.StopOnSignal(SIGTERM);
    FileServer server(service, folder, std::chrono::seconds(argc > 3 ? std::atoi(argv[3]) : 60));
    if (!server.Initialize(argc > 2 ? std::atoi(argv[2]) : SystemAssigned)) {
        std::cerr << "fileserv_server: cannot listen: " << errName(errMapError()) << '\n';
        return EXIT_FAILURE;
    }
    std::cout << "listening on port " << server.GetPort() << std::endl;
    server.Run();
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, ""); // names of files are in the user's encoding
    ExpandCommandArguments(argc, argv, false);
    const int result = Serve(argc, argv);
    FreeCommandArguments(argc, argv);
    return result;
}
