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

#include <dsstring.h>
#include <mbconv.h>

#include "../message.h"

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

inline void Encode(const Request& request, dsXArray<char>& message) {
    Encoder(message).out << request.number << request.length << request.text;
}

inline void Encode(const Answer& answer, dsXArray<char>& message) {
    Encoder(message).out << answer.number << answer.quoted << answer.checksum;
}

inline bool Decode(dsXArray<char>& message, Request& request) {
    Decoder decoder(message);
    decoder.in >> request.number >> request.length >> request.text;
    return decoder.in.good();
}

inline bool Decode(dsXArray<char>& message, Answer& answer) {
    Decoder decoder(message);
    decoder.in >> answer.number >> answer.quoted >> answer.checksum;
    return decoder.in.good();
}

#endif
