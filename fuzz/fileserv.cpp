// SPDX-License-Identifier: MIT
//
// Requests and answers of the file service decoded from arbitrary bytes: a request that is taken is
// encoded in the one right way, and a path that is let through stays below its folder.
#include "examples/fileserv/names.h"
#include "examples/fileserv/protocol.h"

#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <filesystem>

namespace {

void Require(bool holds) {
    if (!holds)
        std::abort();
}

bool StaysBelow(const std::string& path) {
    const std::filesystem::path whole = ("/served/folder/" + fileserv::Native(path));
    const std::string end = whole.lexically_normal().string();
    return end.rfind("/served/folder/", 0) == 0 && end.find('\0') == std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::setlocale(LC_ALL, "C.UTF-8");
    dsXArray<char> message(nullptr);
    message.Append(static_cast<unsigned int>(size), reinterpret_cast<const char*>(data));

    fileserv::Request request;
    if (fileserv::DecodeRequest(message, request)) {
        Require(size == 12 + request.path.size() + request.argument.size());
        if (fileserv::CheckPath(request.path) == errOK)
            Require(StaysBelow(request.path));
        if (fileserv::IsName(request.path.c_str()))
            Require(fileserv::CheckPath(request.path) == errOK);
    }

    std::vector<fileserv::Entry> entries;
    Decoder listing(message);
    if (fileserv::TakeEntries(listing.in, entries))
        Require(entries.size() <= size / 24);
    return 0;
}
