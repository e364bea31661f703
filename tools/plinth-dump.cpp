// SPDX-License-Identifier: MIT
//
// plinth-dump: shows a captured stream of portable records or framed messages. plinth-dump.1 tells
// all about it.
#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include <getopt.h>
#include <langinfo.h>
#include <unistd.h>

#include "../examples/terminal.h"
#include "dumper.h"

namespace {

constexpr long mostRows = 1 << 28; // what a block can have

constexpr char help[] =
    "usage: plinth-dump [OPTION]... LAYOUT [FILE]\n"
    "\n"
    "Shows portable records, or framed messages, of FILE or the standard input: the offset, the\n"
    "bytes, the name and the value of each field. What is torn or makes no sense is marked with "
    "!!.\n"
    "\n"
    "  -m, --messages  framed messages; each payload is one record\n"
    "  -r, --rows N    N rows of a field at most\n"
    "  -h, --help      this text\n"
    "  -V, --version   the version\n"
    "\n"
    "LAYOUT is a list of fields with commas between them, each a kind and a name:\n"
    "  char uchar short ushort int uint long ulong float double character text wide block\n"
    "  rest NAME       all that is left\n"
    "  NAME*(LAYOUT)   a part that is there as often as the number NAME before it says\n"
    "  *(LAYOUT)       a part that is repeated up to the end\n"
    "\n"
    "    plinth-dump --messages 'int type, text name, int count, count*(text key, block data)' "
    "FILE\n"
    "\n"
    "The status is 1 if bytes were marked, and 2 if the layout or the file is none.\n";

int Fail(const std::string& what) {
    std::cerr << "plinth-dump: " << what << '\n';
    return 2;
}

int Print(const std::string& text) {
    std::cout << text << std::flush;
    return std::cout ? EXIT_SUCCESS : Fail("cannot write");
}

/// Whether colours are wanted: on a terminal that has some, unless NO_COLOR says otherwise.
bool Colours() {
    const char* const refused = std::getenv("NO_COLOR");
    return IsTerminal(STDOUT_FILENO) && (refused == nullptr || *refused == '\0');
}

int Dump(int argc, char** argv) {
    const option options[] = {{"messages", no_argument, nullptr, 'm'},
                              {"rows", required_argument, nullptr, 'r'},
                              {"help", no_argument, nullptr, 'h'},
                              {"version", no_argument, nullptr, 'V'},
                              {nullptr, 0, nullptr, 0}};
    tools::Look look;
    look.colours = Colours();
    look.unicode = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    bool messages = false;
    for (int option; (option = getopt_long(argc, argv, "mr:hV", options, nullptr)) != -1;) {
        switch (option) {
        case 'm':
            messages = true;
            break;
        case 'r': {
            char* end = nullptr;
            const long rows = std::strtol(optarg, &end, 10);
            if (rows < 1 || *end != '\0')
                return Fail("no number of rows: " + std::string(optarg));
            look.rows = static_cast<std::size_t>(std::min(rows, mostRows));
            break;
        }
        case 'h':
            return Print(help);
        case 'V':
            return Print("plinth-dump " PLINTH_VERSION "\n");
        default:
            return Fail("--help tells more");
        }
    }
    if (argc - optind < 1 || argc - optind > 2)
        return Fail("LAYOUT [FILE] expected; --help tells more");
    const tools::Layout layout = tools::ParseLayout(argv[optind]);
    std::filebuf file;
    std::streambuf* input = std::cin.rdbuf();
    const std::string path = argc - optind > 1 ? argv[optind + 1] : "-";
    if (path != "-") {
        input = file.open(path, std::ios::in | std::ios::binary);
        if (input == nullptr)
            return Fail("cannot open " + path);
    }
    tools::Dumper dumper(*input, std::cout, layout, look);
    try {
        messages ? dumper.DumpMessages() : dumper.DumpRecords();
    } catch (const std::ios_base::failure&) { // of a folder, say
        std::cout << std::flush;
        return Fail("cannot read " + path);
    }
    std::cout << std::flush;
    if (!std::cout)
        return Fail("cannot write");
    if (dumper.Bad() != 0)
        std::cerr << "plinth-dump: " << dumper.Bad() << " marked as bad\n";
    return dumper.Bad() != 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_CTYPE, ""); // tells what the terminal shows
    std::ios::sync_with_stdio(false);
    std::cin.tie(nullptr);
    try {
        return Dump(argc, argv);
    } catch (const std::exception& error) {
        return Fail(error.what());
    }
}
