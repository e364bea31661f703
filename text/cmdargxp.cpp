// SPDX-License-Identifier: MIT
#include "cmdargxp.h"

#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

#include "dsdatcol.h"
#include "dsstring.h"
#include "outside/quillmarsh/abort.h"
#include "outside/varnholt/text.h"

namespace {

constexpr char option[] = "-argfile";
constexpr char sourceName[] = "cmdargxp";
// The source lines of the reports, which are fixed.
constexpr int fileReport = 28;
constexpr int lineReport = 36;
constexpr int usageReport = 105;
constexpr int lineSize = 65536; // with a terminator

/// The arguments collected so far, each a copy, which go when nobody takes them over.
class Arguments {
public:
    Arguments() : list(nullptr) {}
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;
    ~Arguments() {
        for (unsigned int i = 0; i < list.GetSize(); ++i)
            operator delete(list[i]);
    }

    void Add(const char* argument) {
        const unsigned int count = list.GetSize();
        list += nullptr;
        list[count] = Strnew__(argument);
    }
    int Count() const { return static_cast<int>(list.GetSize()); }
    char** TakeOver() {
        char** const vector = new char*[list.GetSize()];
        if (list.GetSize() != 0)
            std::memcpy(vector, list.GetDataPtr(), list.GetSize() * sizeof(char*));
        list.Clear();
        return vector;
    }

private:
    dsXArray<char*> list;
};

void AddLine(const char* line, Arguments& arguments) {
    if (line[0] == '$') {
        const char* const rest = std::strpbrk(line + 1, "\\/| \t\n");
        const std::size_t length =
            rest != nullptr ? static_cast<std::size_t>(rest - line) - 1 : std::strlen(line + 1);
        const dsString name(line + 1, static_cast<unsigned int>(length));
        dsString value;
        if (Getenv(name, value)) {
            arguments.Add(value + rest);
            return;
        }
    }
    arguments.Add(line);
}

/// False if the file's failure was reported and the report came back.
bool AddFile(const char* name, Arguments& arguments) {
    std::ifstream file(name);
    const auto line = std::make_unique<char[]>(lineSize);
    while (file) {
        file.getline(line.get(), lineSize);
        if (file.eof())
            return true; // a last line that no line feed ends is none
        if (file)
            AddLine(line.get(), arguments);
    }
    // A folder can be opened, but its first read fails.
    if (!file.is_open() || file.bad()) {
        std::cerr << "File " << name << " cannot be opened." << std::endl;
        zelAbort(nullptr, sourceName, fileReport);
    } else {
        std::cerr << "File " << name << " has a line that is too long." << std::endl;
        zelAbort(nullptr, sourceName, lineReport);
    }
    return false;
}

} // namespace

void ExpandCommandArguments(int& argc, char**& argv, bool echo) {
    Arguments expanded;
    bool fileRead = false;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], option) != 0) {
            expanded.Add(argv[i]);
            continue;
        }
        if (++i == argc) {
            std::cerr << "Illegal usage of " << option << std::endl;
            zelAbort(nullptr, sourceName, usageReport);
            return;
        }
        if (!AddFile(argv[i], expanded))
            return;
        fileRead = true;
    }
    const int count = expanded.Count();
    argv = expanded.TakeOver();
    argc = count;
    if (!fileRead || !echo)
        return;
    for (int i = 0; i < argc; ++i)
        std::cout << (i != 0 ? " " : "") << argv[i];
    std::cout << std::endl;
}

void FreeCommandArguments(int argc, char**& argv) {
    for (int i = 0; i < argc; ++i)
        operator delete(argv[i]);
    delete[] argv;
    argv = nullptr;
}
