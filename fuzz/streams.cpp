// SPDX-License-Identifier: MIT
//
// A standard stream over a socket that moves a few bytes at a time, driven by the input: beside it
// a string stream of the same bytes, and what should be sent as a std::string. The first byte
// chooses the portions and the way of the end.
#include "sockstream.h"

#include <memory>
#include <sstream>

#include "fuzz/support/require.h"
#include "tests/scripted.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const unsigned choice = input.Byte();
    const std::string incoming = input.Block(input.Byte() * 41);
    Scripted socket(incoming, std::size_t{1} << choice % 13);
    socket.endResult = choice < 128 ? 0 : -1;
    std::istringstream model(incoming);
    std::string sent;
    auto stream = std::make_unique<ioSockStream>(socket);
    while (!input.IsEmpty()) {
        const unsigned operation = input.Byte(), number = input.Byte() * (1 + operation / 8);
        switch (operation % 8) {
        case 0: {
            std::string mine(number, '#'), theirs = mine;
            stream->read(mine.data(), number);
            model.read(theirs.data(), number);
            Require(mine == theirs && stream->gcount() == model.gcount());
            break;
        }
        case 1: {
            std::string mine, theirs;
            std::getline(*stream, mine, static_cast<char>(number));
            std::getline(model, theirs, static_cast<char>(number));
            Require(mine == theirs);
            break;
        }
        case 2:
            Require(stream->get() == model.get());
            break;
        case 3:
            Require(stream->peek() == model.peek());
            break;
        case 4:
            stream->ignore(number, static_cast<int>(operation));
            model.ignore(number, static_cast<int>(operation));
            Require(stream->gcount() == model.gcount());
            break;
        case 5: {
            int mine = 7, theirs = 7;
            *stream >> mine;
            model >> theirs;
            Require(mine == theirs);
            break;
        }
        case 6: {
            const std::string block(number, static_cast<char>(number));
            *stream << block;
            sent += stream->good() ? block : "";
            break;
        }
        default:
            stream->flush();
            Require(!stream->good() || socket.output == sent);
        }
        Require(operation % 8 > 5 || stream->rdstate() == model.rdstate());
        stream->clear();
        model.clear();
    }
    stream.reset();
    Require(socket.output == sent);
    return 0;
}
