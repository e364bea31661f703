// SPDX-License-Identifier: MIT
#include <memory>
#include <string>

#include <pipestream.h>

#include "costs.h"

namespace {

using namespace costs;

struct Pipe {
    Pipe() { Require(CreatePipeSt(&out, &in) == errOK); }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        DeletePipe(out);
        DeletePipe(in);
    }
    oPipeStream* out;
    iPipeStream* in;
};

void Make() {
    Count([] { const Pipe pipe; });
}

void WriteLine() {
    const Pipe pipe;
    Count([&] { *pipe.out << "a line\n" << std::flush; });
}

void ReadLine() {
    const Pipe pipe;
    std::string line(100, ' ');
    Count([&] { *pipe.out << "a line\n"
                          << std::flush; },
          [&] { Require(bool(std::getline(*pipe.in, line))); });
}

void WriteBlock() {
    const Pipe pipe;
    std::string block(32 * 1024, 'x');
    const auto size = static_cast<std::streamsize>(block.size());
    Count([&] {
        pipe.out->write(block.data(), size).flush();
        Pause();
        Require(bool(pipe.in->read(block.data(), size)));
        Continue();
    });
}

void ReadBlock() {
    const Pipe pipe;
    std::string block(32 * 1024, 'x');
    const auto size = static_cast<std::streamsize>(block.size());
    Count([&] { pipe.out->write(block.data(), size).flush(); },
          [&] { Require(bool(pipe.in->read(block.data(), size))); });
}

void ReadSome() {
    const Pipe pipe;
    char bytes[100];
    Count([&] { *pipe.out << "a line\n"
                          << std::flush; },
          [&] { Require(pipe.in->readsome(bytes, sizeof bytes) == 7); });
}

void PollBuffer() {
    zelInputPipe in;
    zelOutputPipe out;
    Require(zelAnonymousPipe::Create(out, in));
    zelPipeBuf buffer(true);
    buffer.setIOCtrlHandle(in.fd());
    buffer.doallocate();
    Count([&] { Require(buffer.sgetc() == EOF && !buffer.at_end()); });
}

const Row rows[] = {
    {"a pipe made and deleted", Make},
    {"a line written and flushed", WriteLine},
    {"a line read", ReadLine},
    {"32 KiB written at once", WriteBlock},
    {"32 KiB read at once", ReadBlock},
    {"readsome of a line that is there", ReadSome},
    {"zelPipeBuf: an empty pipe looked at", PollBuffer},
};

} // namespace

const Family costs::streams{"Pipes", rows};
