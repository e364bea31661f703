// SPDX-License-Identifier: MIT
//
// fileserv_client HOST PORT COMMAND ...: one errand to a file server; README.md lists the commands.
// The status is 1 if anything failed, 2 for a command that is none. Arguments may stand in a file
// that "-argfile" names. At the end it says where the time went.
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include <cmdargxp.h>
#include <execproc.h>

#include <outside/win32/files.h>

#include "../children.h"
#include "../terminal.h"
#include "mirror.h"
#include "remote.h"

namespace {

using namespace fileserv;
using Arguments = std::vector<std::string>;

int Report(const std::string& what, errstatus status) {
    if (status == errOK)
        return EXIT_SUCCESS;
    std::cerr << "fileserv_client: " << what << ": " << errName(status) << '\n';
    return EXIT_FAILURE;
}

void Print(const Entry& entry) {
    static const char* const kinds[] = {"?", "file", "folder", "link", "unnameable"};
    const bool known = entry.kind >= File && entry.kind <= Unnameable;
    std::cout << kinds[known ? entry.kind : 0] << '\t' << entry.size << '\t' << entry.modified
              << '\t' << Shown(entry.name) << '\n';
}

int ListFolder(RemoteFolder& remote, const Arguments& words) {
    const std::string path = !words.empty() ? words[0] : "";
    std::vector<Entry> entries;
    const errstatus status = remote.GetListing(path, words.size() > 1 ? words[1] : "*", entries);
    for (const Entry& entry : entries)
        Print(entry);
    return Report(path, status);
}

int PrintEntry(RemoteFolder& remote, const Arguments& words) {
    Entry entry;
    const errstatus status = remote.GetEntry(words[0], entry);
    if (status == errOK)
        Print(entry);
    return Report(words[0], status);
}

int PrintSum(RemoteFolder& remote, const Arguments& words) {
    Sum sum;
    const errstatus status = remote.GetSum(words[0], sum);
    if (status == errOK)
        std::cout << std::hex << sum.checksum << std::dec << '\t' << sum.size << '\n';
    return Report(words[0], status);
}

int MirrorTree(RemoteFolder& remote, const Arguments& words, bool out) {
    Arguments excluded;
    for (std::size_t i = 2; i < words.size(); ++i) {
        if (words[i] != "-exclude" || i + 1 == words.size())
            return Report(words[i], errInvalid);
        excluded.push_back(words[++i]);
    }
    Progress progress(IsTerminal(STDERR_FILENO));
    Mirror mirror(remote, progress, excluded);
    if (out)
        mirror.Out(words[0], words[1]);
    else
        mirror.Into(words[0], words[1]);
    return progress.Report() ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// Runs a command while a lock is held. Between its looks for the command's end it speaks to the
/// server, which would take a silent client for a lost one.
int RunLocked(RemoteFolder& remote, const Arguments& words) {
    errstatus status;
    while ((status = remote.Do(Lock, words[0])) == errShared)
        Sleep(200);
    if (status != errOK)
        return Report(words[0], status);
    ExecProcess command(CommandLine({words.begin() + 1, words.end()}).c_str(), 0);
    if (!command.Start())
        return Report(words[1], errMapError());
    const std::unique_ptr<zelEvent> end(command.GetExitEvent());
    for (Entry ignored; !end->Wait(1000);)
        if (Report(words[0], remote.GetEntry("", ignored)) != EXIT_SUCCESS) {
            command.Interrupt(); // the lock is lost
            command.WaitForProcess();
            return EXIT_FAILURE;
        }
    const long code = command.WaitForProcess();
    return Report(words[0], remote.Do(Unlock, words[0])) == EXIT_SUCCESS ? static_cast<int>(code)
                                                                         : EXIT_FAILURE;
}

struct Command {
    std::size_t fewest, most;
    std::function<int(RemoteFolder&, const Arguments&)> run;
};

Command Simple(Operation operation) {
    return {1, 1, [operation](RemoteFolder& remote, const Arguments& words) {
                return Report(words[0], remote.Do(operation, words[0]));
            }};
}

const std::map<std::string, Command>& Commands() {
    constexpr std::size_t any = 1000;
    static const std::map<std::string, Command> commands{
        {"list", {0, 2, ListFolder}},
        {"stat", {1, 1, PrintEntry}},
        {"sum", {1, 1, PrintSum}},
        {"mkdir", Simple(MakeFolder)},
        {"rmdir", Simple(RemoveFolder)},
        {"rmtree", Simple(RemoveTree)},
        {"get",
         {2, 2,
          [](RemoteFolder& remote, const Arguments& words) {
              return Report(words[0], remote.FetchFile(words[0], words[1], nullptr));
          }}},
        {"put",
         {2, 2,
          [](RemoteFolder& remote, const Arguments& words) {
              return Report(words[0], remote.PutFile(words[0], words[1], nullptr));
          }}},
        {"mirror-out",
         {2, any,
          [](RemoteFolder& remote, const Arguments& words) {
              return MirrorTree(remote, words, true);
          }}},
        {"mirror-into",
         {2, any,
          [](RemoteFolder& remote, const Arguments& words) {
              return MirrorTree(remote, words, false);
          }}},
        {"lock", {2, any, RunLocked}},
    };
    return commands;
}

int Run(const Arguments& words) {
    const auto command = words.size() > 2 ? Commands().find(words[2]) : Commands().end();
    if (command == Commands().end() || words.size() - 3 < command->second.fewest ||
        words.size() - 3 > command->second.most) {
        std::cerr << "usage: fileserv_client HOST PORT COMMAND ..., where the command is one of\n";
        for (const auto& known : Commands())
            std::cerr << ' ' << known.first;
        std::cerr << '\n';
        return 2;
    }
    zelService service; // a signal breaks the connection off, so that no half of a file is left
    service.StopOnSignal(SIGINT);
    service.StopOnSignal(SIGTERM);
    const std::unique_ptr<RemoteFolder> remote =
        RemoteFolder::Connect(words[0].c_str(), std::atoi(words[1].c_str()), &service);
    if (remote == nullptr)
        return Report(words[0] + " port " + words[1], errMapError());
    return command->second.run(*remote, Arguments(words.begin() + 3, words.end()));
}

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, ""); // names of files are in the user's encoding
    ExpandCommandArguments(argc, argv, false);
    const int result = Run(Arguments(argv + 1, argv + argc));
    FreeCommandArguments(argc, argv);
    return result;
}
