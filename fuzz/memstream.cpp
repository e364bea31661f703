// SPDX-License-Identifier: MIT
//
// A record stream in memory, driven by the input: each byte chooses what to do, the next ones say
// how far and with what. Beside it a std::string, of which a read sees one blank more.
#include "rwstream.h"

#include <algorithm>
#include <memory>

#include "fuzz/support/require.h"

namespace {

constexpr std::size_t most = 20000;

class Model {
public:
    void Write(const std::string& block) {
        if (block.empty())
            return;
        if (bytes.size() < at + block.size())
            bytes.resize(at + block.size(), ' ');
        bytes.replace(at, block.size(), block);
        at += block.size();
        written = true;
    }
    std::string Read(std::size_t count) {
        std::string taken = at < bytes.size() ? bytes.substr(at, count) : "";
        if (written && taken.size() < count && at <= bytes.size())
            taken += ' ';
        at += taken.size();
        return taken;
    }
    bool Seek(long offset, int origin) {
        const long size = written ? static_cast<long>(bytes.size()) : -1;
        const long target = origin == 0   ? offset
                            : origin == 1 ? static_cast<long>(at) + offset
                            : origin == 2 ? size - offset
                                          : 0;
        const bool stays =
            (origin == 0 && target == static_cast<long>(at)) || (origin == 1 && offset == 0);
        if (!stays && (target < 0 || (written && target > size)))
            return false;
        at = static_cast<std::size_t>(target);
        return true;
    }

    std::string bytes;
    std::size_t at = 0;
    bool written = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    memStream stream;
    Model model;
    while (!input.IsEmpty()) {
        const unsigned operation = input.Byte();
        const unsigned number = input.Byte() << 8 | input.Byte();
        switch (operation % 5) {
        case 0: {
            std::string block = input.Block(1 + number % 7);
            std::string repeated;
            for (unsigned i = 0; i < number % 1000 && !block.empty(); ++i)
                repeated += block;
            if (model.at + repeated.size() > most)
                break;
            Require(stream.Write(repeated.data(), static_cast<int>(repeated.size())) == errOK);
            model.Write(repeated);
            break;
        }
        case 1: {
            const std::unique_ptr<char[]> room(new char[number + 1]);
            int count = -1;
            Require(stream.Read(room.get(), static_cast<int>(number), count) == errOK);
            Require(std::string(room.get(), static_cast<std::size_t>(count)) == model.Read(number));
            break;
        }
        case 2: {
            const int origin = static_cast<int>(operation / 5 % 4);
            const long offset = static_cast<long>(number) - (1 << (operation / 20 % 16));
            if (offset > static_cast<long>(most))
                break;
            Require(stream.Seek(offset, origin) ==
                    (model.Seek(offset, origin) ? errOK : errOutOfRange));
            break;
        }
        case 3: {
            const char delimiter = static_cast<char>(number);
            std::string wanted;
            for (std::string next; !(next = model.Read(1)).empty() && next[0] != delimiter;)
                wanted += next;
            dsXArray<char> line(nullptr);
            Require(stream.ReadLn(line, delimiter) == errOK);
            Require(std::string(line.GetDataPtr(), line.GetSize()) == wanted + '\0');
            break;
        }
        default: {
            const std::string rest = model.Read(most * 2);
            dsXArray<char> all(nullptr);
            Require(stream.Read(all) == errOK);
            Require(all.GetSize() == (model.written ? model.bytes.size() + 1 : 0));
            Require(std::string(all.GetDataPtr(), rest.size()) == rest);
        }
        }
        std::fpos<int> place;
        Require(stream.GetPos(place) == errOK);
        Require(static_cast<std::size_t>(static_cast<std::streamoff>(place)) == model.at);
    }
    return 0;
}
