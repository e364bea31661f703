// SPDX-License-Identifier: MIT
#include <memory>
#include <string>

#include <pipestream.h>

#include "outside/varnholt/pipes.h"
#include "outside/win32/handles.h"
#include "outside/win32/pipes.h"
#include "sweep.h"

namespace {

using namespace sweep;

template <typename Stream>
struct Deleter {
    void operator()(Stream* stream) const { DeletePipe(stream); }
};

struct Ends {
    std::unique_ptr<oPipeStream, Deleter<oPipeStream>> out;
    std::unique_ptr<iPipeStream, Deleter<iPipeStream>> in;
    Ends() {
        oPipeStream* writer = nullptr;
        iPipeStream* reader = nullptr;
        CreatePipeSt(&writer, &reader);
        out.reset(writer), in.reset(reader);
    }
};

void MakePipe() {
    oPipeStream* writer = nullptr;
    iPipeStream* reader = nullptr;
    const errstatus status = Try(errNone, [&] { return CreatePipeSt(&writer, &reader); });
    Expect(status == errOK || MemoryFails() || (status == errPipeFailed && !MustWork()),
           "errOK or errPipeFailed");
    Expect((status == errOK) == (writer != nullptr) && (status == errOK) == (reader != nullptr),
           "both or none");
    if (writer == nullptr || reader == nullptr)
        return;
    *writer << "ab\n" << std::flush;
    std::string line;
    Expect(std::getline(*reader, line) && line == "ab", "it works");
    Try([&] { DeletePipe(writer); });
    Expect(!std::getline(*reader, line), "the end is seen");
    Try([&] { DeletePipe(reader); });
}

const std::string text(20000, 'x');

void WriteAndRead() {
    Ends pipe;
    bool written = false;
    Try([&] { written = bool(pipe.out->write(text.data(), 100) << text << std::flush); });
    Expect(written || !MustWork(), "it is written");
    Try([&] { pipe.out.reset(); });
    std::string got;
    Try([&] {
        char part[3000];
        while (pipe.in->read(part, sizeof part) || pipe.in->gcount() != 0)
            got.append(part, static_cast<std::size_t>(pipe.in->gcount()));
    });
    Expect(got.find_first_not_of('x') == got.npos && got.size() <= text.size() + 100, "its bytes");
    Expect(got.size() == text.size() + 100 || !MustWork(), "all of them");
}

void ReadWhatIsThere() {
    Ends pipe;
    char part[8] = "";
    std::streamsize got = -1;
    Try([&] { got = pipe.in->readsome(part, sizeof part); });
    Expect(got <= 0, "nothing from an empty pipe");
    *pipe.out << "abc" << std::flush;
    pipe.in->clear();
    std::unique_ptr<zelEvent> event;
    Try([&] { event.reset(pipe.in->GetReadEvent()); });
    Expect(event != nullptr || MemoryFails(), "an event");
    if (event != nullptr) {
        const bool fired = Try(false, [&] { return event->Wait(20) && event->IsSignaled(); });
        Expect(fired || !MustWork(), "it fires");
        Expect(zelIPipeEvent::cast(event.get()) != nullptr, "it is one of pipes");
    }
    Try([&] { got = pipe.in->readsome(part, sizeof part); });
    Expect(got == 3 || got == 1 || !MustWork(), "what is there");
    Try([&] { event.reset(); });
}

void PipeBuffer() {
    for (const bool reads : {true, false}) {
        zelOutputPipe output;
        zelInputPipe input;
        if (!Try(false, [&] { return zelAnonymousPipe::Create(output, input); })) {
            Expect(!MustWork(), "there is a pipe");
            continue;
        }
        unsigned int count = 0;
        {
            zelPipeBuf buffer(false);
            void* const own = reads ? input.fd() : output.fd();
            void* const other = reads ? output.fd() : input.fd();
            Expect(buffer.setIOCtrlHandle(own) != 0 && buffer.is_attached() == 1, "it is taken");
            char got[8] = "";
            if (reads) {
                WriteFile(other, "ab", 2, &count, nullptr);
                int c = -1;
                Try([&] { c = buffer.sgetc(); });
                Expect(c == 'a' || !MustWork(), "a byte is read");
                Try([&] { Expect(!buffer.at_end() || !MustWork(), "it goes on"); });
            } else {
                bool put = false;
                Try([&] { put = buffer.sputc('a') == 'a' && buffer.pubsync() == 1; });
                Expect(put || !MustWork(), "a byte is written");
                if (put)
                    Expect(ReadFile(other, got, 8, &count, nullptr) && count == 1, "it is there");
            }
            CloseHandle(other);
            Try([&] { Expect(!reads || !buffer.at_end() || Hit(), "not at its end"); });
        }
    }
}

void NativePipes() {
    Ends pipe;
    unsigned int count = 0, available = 0, left = 0;
    char got[8] = "";
    void* const out = pipe.out->rdbuf()->pipe().fd();
    void* const in = pipe.in->rdbuf()->pipe().fd();
    const bool wrote = Try(false, [&] { return WriteFile(out, "abc", 3, &count, nullptr); });
    Expect(wrote ? count == 3 : !MustWork(), "written if it says so");
    const bool peeked =
        Try(false, [&] { return PeekNamedPipe(in, nullptr, 0, nullptr, &available, &left); });
    Expect(peeked ? available == 3 || !wrote : !MustWork(), "what waits is known");
    if (available != 0) {
        const bool read = Try(false, [&] { return ReadFile(in, got, 3, &count, nullptr); });
        Expect(read ? std::string("abc").starts_with(std::string(got, count)) && count > 0
                    : !MustWork(),
               "read if it says so");
    }
}

void ReaderIsGone() {
    Ends pipe;
    pipe.in.reset();
    bool written = true;
    Try([&] { written = bool(*pipe.out << "abc" << std::flush); });
    Expect(!written, "nobody takes it, and nobody dies of it");
    Try([&] { pipe.out.reset(); });
}

const Scenario scenarios[] = {
    {"make a pipe", "CreatePipeSt DeletePipe zelAnonymousPipe::* ?PipeStream::?PipeStream",
     MakePipe},
    {"write and read", "zel?PipeSBuf::* zel?StreamBuf::*", WriteAndRead},
    {"read what is there", "iPipeStream::GetReadEvent zelIPipeEvent::* zelPipeEvent::* zelEvent::*",
     ReadWhatIsThere},
    {"a pipe buffer", "zelPipeBuf::*", PipeBuffer},
    {"native pipes", "PeekNamedPipe ReadFile WriteFile", NativePipes},
    {"the reader is gone", "zelOPipeSBuf::*", ReaderIsGone},
};

} // namespace

namespace sweep {
const Family pipes{"pipes", scenarios};
}
