// SPDX-License-Identifier: MIT
#include <memory>
#include <sstream>
#include <string>

#include <bdtstream.h>
#include <dsstring.h>
#include <rwstream.h>

#include "costs.h"

namespace {

using namespace costs;

void Put(std::stringbuf& bytes) {
    bytes.pubseekpos(0, std::ios::out);
    bdtOStream out(&bytes, true);
    out << 42 << 0.5 << "a text of twenty byte";
    Require(out.good());
}

void Encode() {
    std::stringbuf bytes;
    Count([&] { Put(bytes); });
}

void Decode() {
    std::stringbuf bytes;
    Put(bytes);
    Count([&] { bytes.pubseekpos(0, std::ios::in); },
          [&] {
              bdtIStream in(&bytes, true);
              int number;
              double fraction;
              dsString text;
              in >> number >> fraction >> text;
              Require(in.good() && number == 42);
          });
}

void DecodeBlock() {
    std::string data(64 * 1024, 'x');
    std::stringbuf bytes;
    bdtOStream(&bytes, true).Write(data.data(), static_cast<int>(data.size()));
    Count([&] { bytes.pubseekpos(0, std::ios::in); },
          [&] {
              char* block;
              int length;
              bdtIStream(&bytes, true).Read(block, length);
              Require(length == 64 * 1024);
              delete[] block;
          });
}

void MemoryStream() {
    std::string data(64 * 1024, 'x');
    Count([&] {
        memStream stream;
        Require(stream.Write(data.data(), static_cast<int>(data.size())) == errOK);
    });
}

void ReadMemoryStream() {
    std::string data(64 * 1024, 'x');
    memStream stream;
    stream.Write(data.data(), static_cast<int>(data.size()));
    Count([&] {
        int count;
        stream.Seek(0, 0);
        Require(stream.Read(data.data(), static_cast<int>(data.size()), count) == errOK);
    });
}

void ReadLine() {
    std::string data = "a line of some length\n";
    memStream stream;
    stream.Write(data.data(), static_cast<int>(data.size()));
    dsXArray<char> line(nullptr);
    Count([&] {
        stream.Seek(0, 0);
        Require(stream.ReadLn(line, '\n') == errOK);
    });
}

const Row rows[] = {
    {"a record written: a number, a fraction, a text of 21 bytes", Encode},
    {"the same record read", Decode},
    {"a block of 64 KiB read", DecodeBlock},
    {"memStream: 64 KiB written into a new one", MemoryStream},
    {"memStream: 64 KiB read", ReadMemoryStream},
    {"memStream: a line read", ReadLine},
};

} // namespace

const Family costs::records{"Records and streams in memory", rows};
