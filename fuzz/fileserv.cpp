// SPDX-License-Identifier: MIT
//
// Requests and answers of the file service decoded from arbitrary bytes: a request is taken if a
// second reader, made after the page of the protocol, takes it, and then says the same; a path that
// is let through stays below its folder; a listing comes back as it was read.
#include "examples/fileserv/names.h"
#include "examples/fileserv/protocol.h"

#include <clocale>
#include <filesystem>
#include <optional>

#include "fuzz/support/require.h"
#include "fuzz/support/sequence.h"

namespace {

bool StaysBelow(const std::string& path) {
    const std::filesystem::path whole = ("/served/folder/" + fileserv::Native(path));
    const std::string end = whole.lexically_normal().string();
    return end.rfind("/served/folder/", 0) == 0 && end.find('\0') == std::string::npos;
}

class Model {
public:
    explicit Model(const std::string& all) : bytes(all) {}

    bool TakeNumber(long& number) {
        if (bytes.size() - at < 4)
            return false;
        unsigned long bits = 0;
        for (int i = 0; i < 4; ++i)
            bits = bits << 8 | static_cast<unsigned char>(bytes[at++]);
        number = static_cast<int>(bits);
        return true;
    }
    bool TakeText(std::string& text) {
        long length = 0;
        if (!TakeNumber(length) || length < 0 ||
            bytes.size() - at < static_cast<std::size_t>(length))
            return false;
        text = bytes.substr(at, static_cast<std::size_t>(length));
        at += text.size();
        std::size_t valid = 0;
        for (std::size_t part = 1; part != 0 && valid < text.size() && text[valid] != '\0';)
            valid += part = Sequence(text, valid);
        return valid == text.size();
    }
    bool IsAtEnd() const { return at == bytes.size(); }

private:
    const std::string& bytes;
    std::size_t at = 0;
};

void CheckRequest(dsXArray<char>& message, const std::string& bytes) {
    fileserv::Request request;
    Model model(bytes);
    long operation = 0;
    std::string path, argument;
    const bool right = model.TakeNumber(operation) && model.TakeText(path) &&
                       model.TakeText(argument) && model.IsAtEnd();
    Require(fileserv::DecodeRequest(message, request) == right);
    if (!right)
        return;
    Require(request.operation == operation && request.path == path && request.argument == argument);
    if (fileserv::CheckPath(path) == errOK)
        Require(StaysBelow(path));
    if (fileserv::IsName(path.c_str()))
        Require(fileserv::CheckPath(path) == errOK);
}

void CheckListing(dsXArray<char>& message) {
    std::vector<fileserv::Entry> entries, again;
    Decoder listing(message);
    if (!fileserv::TakeEntries(listing.in, entries))
        return;
    Require(entries.size() <= message.GetSize() / 24);
    dsXArray<char> written(nullptr);
    {
        Encoder encoder(written);
        encoder.out << static_cast<int>(entries.size());
        for (const fileserv::Entry& entry : entries)
            fileserv::PutEntry(encoder.out, entry);
    }
    Decoder second(written);
    Require(fileserv::TakeEntries(second.in, again) && again.size() == entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i)
        Require(again[i].kind == entries[i].kind && again[i].name == entries[i].name &&
                again[i].size == entries[i].size && again[i].modified == entries[i].modified);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::setlocale(LC_ALL, "C.UTF-8");
    dsXArray<char> message(nullptr);
    message.Append(static_cast<unsigned int>(size), reinterpret_cast<const char*>(data));
    CheckRequest(message, std::string(data, data + size));
    CheckListing(message);
    return 0;
}
