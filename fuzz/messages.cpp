// SPDX-License-Identifier: MIT
//
// Messages read from a stream of arbitrary bytes that come in arbitrary portions, beside a reader
// that sees all of them at once. The first two bytes choose the portions and the way of the end.
#include "psockmsg.h"

#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/support/require.h"
#include "tests/scripted.h"

namespace {

/// Takes a message off `bytes`. False, with what there is of the payload, if it is not whole.
bool TakeMessage(std::string& bytes, std::string& payload) {
    payload.clear();
    if (bytes.size() < 4)
        return false;
    std::uint32_t count = 0;
    for (int i = 0; i < 4; ++i)
        count = count << 8 | static_cast<unsigned char>(bytes[static_cast<std::size_t>(i)]);
    if (count > 0x7FFFFFFF)
        count = 0;
    payload = bytes.substr(4, count);
    bytes.erase(0, 4 + payload.size());
    return payload.size() == count;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
    Scripted stream(bytes, std::size_t{1} << data[0] % 16);
    stream.endResult = data[1] % 2 - 1;
    stream.end = data[1] % 4 < 2 ? errOK : errReset;

    std::string payload;
    for (bool whole = true; whole;) {
        whole = TakeMessage(bytes, payload);
        dsXArray<char> message(nullptr);
        const errstatus status = Read(stream, message);
        Require((status == errOK) == whole);
        Require(std::string(message.GetDataPtr(), message.GetSize()) == payload);
        if (!whole)
            break;
        Scripted back;
        Require(Write(back, message) == errOK);
        Require(back.output.size() == 4 + payload.size());
        Require(TakeMessage(back.output, payload) && back.output.empty());
    }
    return 0;
}
