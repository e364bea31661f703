// SPDX-License-Identifier: MIT
#ifndef PLINTH_TESTS_SCRIPTED_H
#define PLINTH_TESTS_SCRIPTED_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "psock.h"

/// A stream that gives and takes bytes by a script, a few in each call.
class Scripted : public psockStream {
public:
    explicit Scripted(std::string incoming = "", std::size_t bytesInACall = SIZE_MAX)
        : step(bytesInACall), input(std::move(incoming)) {}

    int Read(void* data, int length, bool) override {
        const std::size_t part = Part(length, input.size() - place);
        std::memcpy(data, input.data() + place, part);
        place += part;
        return Result(part);
    }
    int Write(const void* data, int length, bool) override {
        const std::size_t part = Part(length, room);
        output.append(static_cast<const char*>(data), part);
        room -= part;
        return Result(part);
    }
    bool Exception() override { return false; }
    int Select(fd_set*, fd_set*, fd_set*, timeval*) override { return 0; }
    int SelectWait(fd_set*, fd_set*, fd_set*, timeval*) override { return 0; }
    errstatus getErr() override { return error; }
    unsigned int getSock() override { return 0; }
    void CloseSocket() override {}

    std::string Rest() const { return input.substr(place); }

    std::string output;
    std::size_t step, room = SIZE_MAX;
    int calls = 0, endResult = -1;        // what a call gives at the end of input or room,
    errstatus error = errOK, end = errOK; // and what it records then

private:
    std::string input;
    std::size_t place = 0;

    std::size_t Part(int length, std::size_t there) {
        ++calls;
        return std::min({static_cast<std::size_t>(length), step, there});
    }
    int Result(std::size_t part) {
        if (part != 0)
            return static_cast<int>(part);
        error = end;
        return endResult;
    }
};

#endif
