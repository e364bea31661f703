// SPDX-License-Identifier: MIT
//
// What client and server say to each other, as README.md describes it byte by byte: a request is
// one framed message in the portable encoding, and so is its answer.
//
// Decoding believes nothing: a message counts as a request only if encoding that request again
// gives the very same bytes. That leaves no room for text that is none, for lengths that lie, for
// NUL bytes inside a path, or for anything behind the end.
#ifndef PLINTH_EXAMPLES_FILESERV_PROTOCOL_H
#define PLINTH_EXAMPLES_FILESERV_PROTOCOL_H

#include <cstring>
#include <string>
#include <vector>

#include <dsstring.h>
#include <errstatus.h>

#include "../message.h"

namespace fileserv {

constexpr int statusBytes = 4;        ///< in front of every answer and every block
constexpr int largestBlock = 1 << 20; ///< bytes of a file in one message
constexpr int largestRequest = 16384;
constexpr int largestAnswer = 0x7FFFFFFF;

enum Operation : int {
    List = 1,
    Stat,
    Checksum,
    Fetch,
    Put,
    MakeFolder,
    RemoveFolder,
    RemoveTree,
    Lock,
    Unlock,
};

/// Every request has the same fields; `argument` is the pattern of a List and empty otherwise.
struct Request {
    int operation = 0;
    std::string path;
    std::string argument;
};

enum Kind : int { File = 1, Folder = 2, Link = 3, Unnameable = 4 };

/// What is known of a path, or of a name in a listing.
struct Entry {
    int kind = 0;
    std::string name;
    long long size = 0;
    long long modified = 0;
};

/// What the checksum of a file was made of, and what came out.
struct Sum {
    long long size = 0;
    unsigned int checksum = 0;

    bool operator==(const Sum& other) const {
        return size == other.size && checksum == other.checksum;
    }
};

// Numbers of 64 bits travel as two of 32, the upper one first.

inline bdtOStream& PutLong(bdtOStream& out, long long value) {
    const auto bits = static_cast<unsigned long long>(value);
    return out << static_cast<unsigned int>(bits >> 32) << static_cast<unsigned int>(bits);
}

inline bdtIStream& TakeLong(bdtIStream& in, long long& value) {
    unsigned int upper = 0, lower = 0;
    in >> upper >> lower;
    value = static_cast<long long>(static_cast<unsigned long long>(upper) << 32 | lower);
    return in;
}

inline bdtIStream& TakeText(bdtIStream& in, std::string& value) {
    dsString text;
    in >> text;
    value = text;
    return in;
}

inline void EncodeRequest(const Request& request, dsXArray<char>& message) {
    Encoder(message).out << request.operation << request.path.c_str() << request.argument.c_str();
}

inline bool DecodeRequest(dsXArray<char>& message, Request& request) {
    Decoder decoder(message);
    decoder.in >> request.operation;
    TakeText(decoder.in, request.path);
    TakeText(decoder.in, request.argument);
    if (!decoder.in.good())
        return false;
    dsXArray<char> again(nullptr);
    EncodeRequest(request, again);
    return again.GetSize() == message.GetSize() &&
           std::memcmp(again.GetDataPtr(), message.GetDataPtr(), again.GetSize()) == 0;
}

inline void PutEntry(bdtOStream& out, const Entry& entry) {
    out << entry.kind << entry.name.c_str();
    PutLong(PutLong(out, entry.size), entry.modified);
}

inline bool TakeEntry(bdtIStream& in, Entry& entry) {
    in >> entry.kind;
    TakeText(in, entry.name);
    TakeLong(TakeLong(in, entry.size), entry.modified);
    return in.good();
}

/// A listing ends with the message, whatever number it claims to have.
inline bool TakeEntries(bdtIStream& in, std::vector<Entry>& entries) {
    int count = 0;
    in >> count;
    entries.clear();
    for (Entry entry; in.good() && count > 0 && TakeEntry(in, entry); --count)
        entries.push_back(entry);
    return in.good() && count == 0;
}

} // namespace fileserv

#endif
