// SPDX-License-Identifier: MIT
//
// The records that the client and the server exchange. Each is one framed message, encoded in
// portable mode, so that any two hosts understand each other.
#ifndef PLINTH_EXAMPLES_LINES_RECORD_H
#define PLINTH_EXAMPLES_LINES_RECORD_H

#include <memory>
#include <new>
#include <sstream>
#include <string>

#include <bdtstream.h>
#include <dsdatcol.h>
#include <dsstring.h>
#include <mbconv.h>

constexpr int portable = 1;

/// One line: its number, its length in bytes as the sender has it, and its text.
struct Request {
    int number = 0;
    int length = 0;
    dsString text;
};

/// What the server makes of a line. An empty `quoted` (a quoted text has two quotes at least) says
/// that the text could not be read there.
struct Answer {
    int number = 0;
    dsString quoted;
    unsigned int checksum = 0;
};

/// FNV-1a with 32 bits: from 2166136261 on, each byte is xored in, and the sum multiplied by
/// 16777619.
inline unsigned int Checksum(const char* bytes) {
    unsigned int sum = 2166136261U;
    for (; *bytes != '\0'; ++bytes)
        sum = (sum ^ static_cast<unsigned char>(*bytes)) * 16777619U;
    return sum;
}

/// The answer to a text. A text that is none in this locale has an empty one.
inline void Describe(const char* text, Answer& answer) {
    struct Release {
        void operator()(char* neutral) const { operator delete(neutral); }
    };
    const std::unique_ptr<char, Release> neutral(mbxNativeToNeut(text));
    if (!neutral)
        return;
    std::ostringstream quoted;
    NativeStringToCStyle(text, quoted);
    answer.quoted = quoted.str().c_str();
    answer.checksum = Checksum(neutral.get());
}

inline void ToMessage(const std::stringbuf& bytes, dsXArray<char>& message) {
    const std::string all = bytes.str();
    message.Clear();
    message.Append(static_cast<unsigned int>(all.size()), all.data());
}

inline void Encode(const Request& request, dsXArray<char>& message) {
    std::stringbuf bytes;
    bdtOStream(&bytes, portable) << request.number << request.length << request.text;
    ToMessage(bytes, message);
}

inline void Encode(const Answer& answer, dsXArray<char>& message) {
    std::stringbuf bytes;
    bdtOStream(&bytes, portable) << answer.number << answer.quoted << answer.checksum;
    ToMessage(bytes, message);
}

inline bool Decode(const dsXArray<char>& message, Request& request) {
    std::stringbuf bytes(std::string(message.GetDataPtr(), message.GetSize()));
    bdtIStream in(&bytes, portable);
    in >> request.number >> request.length >> request.text;
    return in.good();
}

inline bool Decode(const dsXArray<char>& message, Answer& answer) {
    std::stringbuf bytes(std::string(message.GetDataPtr(), message.GetSize()));
    bdtIStream in(&bytes, portable);
    in >> answer.number >> answer.quoted >> answer.checksum;
    return in.good();
}

#endif
