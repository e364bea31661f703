// SPDX-License-Identifier: MIT
//
// What examples that exchange messages share: the fields of a message, in the portable encoding.
#ifndef PLINTH_EXAMPLES_MESSAGE_H
#define PLINTH_EXAMPLES_MESSAGE_H

#include <streambuf>

#include <bdtstream.h>
#include <dsdatcol.h>

constexpr int portable = 1;

/// Lets a binary data stream write to the end of a message or read it from its start, in place.
class MessageBuffer : public std::streambuf {
public:
    explicit MessageBuffer(dsXArray<char>& bytes) : message(bytes) {
        char* const start = message.GetDataPtr();
        if (start != nullptr)
            setg(start, start, start + message.GetSize());
    }

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        message.Append(static_cast<unsigned int>(count), bytes);
        return count;
    }
    int_type overflow(int_type c) override {
        if (!traits_type::eq_int_type(c, traits_type::eof()))
            message += traits_type::to_char_type(c);
        return traits_type::not_eof(c);
    }

private:
    dsXArray<char>& message;
};

/// Writes a message afresh, through `out`.
class Encoder {
public:
    explicit Encoder(dsXArray<char>& message) : buffer(message), out(&buffer, portable) {
        message.Clear();
    }

private:
    MessageBuffer buffer;

public:
    bdtOStream out;
};

/// Reads a message, through `in`.
class Decoder {
public:
    explicit Decoder(dsXArray<char>& message) : buffer(message), in(&buffer, portable) {}

private:
    MessageBuffer buffer;

public:
    bdtIStream in;
};

#endif
