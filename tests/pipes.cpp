// SPDX-License-Identifier: MIT
#include "pipestream.h"

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "outside/win32/handles.h"
#include "outside/win32/pipes.h"
#include "tests/support.h"

namespace {

constexpr int end = std::char_traits<char>::eof();

std::string Noise(std::size_t size) {
    std::mt19937 chance(7);
    std::string noise(size, ' ');
    std::generate(noise.begin(), noise.end(), [&] { return static_cast<char>(chance()); });
    return noise;
}

/// A pipe whose read end is looked at raw.
struct Pipe {
    Pipe() { zelAnonymousPipe::Create(out, in); }
    /// Bytes in the pipe, -1 at its end.
    long Waiting() const {
        unsigned int count = 0;
        return PeekNamedPipe(in.fd(), nullptr, 0, nullptr, &count, nullptr) ? long{count} : -1;
    }
    zelOutputPipe out;
    zelInputPipe in;
};

/// zelPipeBuf with its protected operations open.
struct PipeBuf : zelPipeBuf {
    explicit PipeBuf(void* pipe) : zelPipeBuf(true) { setIOCtrlHandle(pipe); }
    using zelPipeBuf::overflow;
    using zelPipeBuf::sync;
    using zelPipeBuf::underflow;
};

TEST(PipeBuffer, WritesInBlocksAndReadsWithoutBlocking) {
    const long before = support::OpenDescriptors();
    {
        const Pipe pipe;
        PipeBuf reader(pipe.in.fd());
        EXPECT_FALSE(reader.setIOCtrlHandle(pipe.out.fd()));
        EXPECT_EQ(reader.is_attached(), 1);
        EXPECT_EQ(reader.sync(), 1) << "before there is a block";
        EXPECT_EQ(reader.underflow(), -1);
        EXPECT_FALSE(reader.at_end()) << "open and empty";
        {
            PipeBuf writer(pipe.out.fd());
            EXPECT_EQ(writer.doallocate(), 1);
            EXPECT_EQ(writer.doallocate(), 0);
            EXPECT_EQ(writer.overflow(-1), 1);
            const std::string noise = Noise(4096);
            EXPECT_EQ(writer.sputn(noise.data(), 4096), 4096);
            EXPECT_EQ(pipe.Waiting(), 0);
            EXPECT_EQ(writer.sputc('\xff'), 0xff);
            EXPECT_EQ(pipe.Waiting(), 4096);
            EXPECT_EQ(writer.sync(), 1);
            EXPECT_EQ(reader.underflow(), static_cast<unsigned char>(noise[0]));
            EXPECT_EQ(pipe.Waiting(), 1) << "one read takes 4096 bytes";
            EXPECT_EQ(reader.in_avail(), 4096);
            EXPECT_EQ(reader.sync(), 1);
            EXPECT_EQ(reader.sbumpc(), 0xff) << "sync has dropped the unread bytes";
            writer.sputc('x');
        }
        EXPECT_EQ(reader.sgetc(), end) << "pending output goes with its buffer";
        EXPECT_TRUE(reader.at_end());
    }
    EXPECT_EQ(support::OpenDescriptors(), before);
}

/// Read and write end as streams.
struct Streams {
    Streams() : status(CreatePipeSt(&out, &in)) {}
    ~Streams() {
        if (out)
            DeletePipe(out);
        if (in)
            DeletePipe(in);
    }
    void CloseWriter() { DeletePipe(std::exchange(out, nullptr)); }
    oPipeStream* out = nullptr;
    iPipeStream* in = nullptr;
    errstatus status;
};

TEST(PipeStream, TellsOfBytesAndOfTheEnd) {
    const long before = support::OpenDescriptors();
    {
        Streams pipe;
        ASSERT_EQ(pipe.status, errOK);
        const std::unique_ptr<zelEvent> event(pipe.in->GetReadEvent());
        EXPECT_EQ(zelIPipeEvent::cast(event.get()), event.get());
        EXPECT_FALSE(event->IsSignaled());
        char block[64];
        EXPECT_EQ(pipe.in->readsome(block, 64), 0);
        EXPECT_TRUE(pipe.in->good());
        *pipe.out << "one line\nand " << 2;
        EXPECT_FALSE(event->IsSignaled()) << "still in the stream's buffer";
        pipe.out->flush();
        EXPECT_TRUE(event->Wait(-1));
        std::string line;
        EXPECT_TRUE(std::getline(*pipe.in, line) && line == "one line");
        EXPECT_EQ(pipe.in->readsome(block, 64), 5);
        EXPECT_FALSE(event->IsSignaled());
        pipe.CloseWriter();
        EXPECT_TRUE(event->Wait(-1));
        EXPECT_EQ(pipe.in->readsome(block, 64), 0);
        EXPECT_TRUE(pipe.in->eof());
    }
    EXPECT_EQ(support::OpenDescriptors(), before);
}

TEST(PipeStream, MovesEverythingWhileSignalsInterrupt) {
    const std::string noise = Noise(8u << 20);
    Streams pipe;
    std::string received(noise.size(), ' ');
    std::thread reader([&] {
        const support::SignalStorm storm;
        pipe.in->read(received.data(), static_cast<std::streamsize>(received.size() / 2));
        for (auto at = received.begin() + pipe.in->gcount(); at != received.end(); ++at)
            *at = static_cast<char>(pipe.in->get());
    });
    {
        const support::SignalStorm storm;
        for (std::size_t at = 0; at < noise.size();) {
            const std::size_t count = std::min(at % 40000 + 1, noise.size() - at);
            pipe.out->write(noise.data() + at, static_cast<std::streamsize>(count));
            at += count;
        }
        pipe.out->flush();
        reader.join();
    }
    EXPECT_TRUE(*pipe.out && *pipe.in && received == noise);
}

TEST(PipeStream, ThatCannotBeMadeLeavesItsArgumentsAlone) {
    const int next = dup(0);
    close(next);
    const support::DescriptorLimit one(static_cast<rlim_t>(next) + 1);
    oPipeStream* out = reinterpret_cast<oPipeStream*>(&out);
    iPipeStream* in = reinterpret_cast<iPipeStream*>(&in);
    EXPECT_EQ(CreatePipeSt(&out, &in), errPipeFailed);
    EXPECT_EQ(errMapError(), errTooManyOpen);
    EXPECT_EQ(static_cast<void*>(out), &out);
    EXPECT_EQ(static_cast<void*>(in), &in);
}

TEST(BrokenPipe, IsAFailedWriteAndNoSignal) {
    sigset_t broken, mask, pending;
    sigemptyset(&broken);
    sigaddset(&broken, SIGPIPE);
    for (const bool hostHasOne : {false, true}) {
        if (hostHasOne) {
            pthread_sigmask(SIG_BLOCK, &broken, nullptr);
            raise(SIGPIPE);
        }
        Streams pipe;
        DeletePipe(std::exchange(pipe.in, nullptr));
        *pipe.out << "into the void" << std::flush;
        EXPECT_TRUE(pipe.out->bad());
        EXPECT_EQ(errMapError(), errBrokenPipe);
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        sigpending(&pending);
        EXPECT_EQ(sigismember(&mask, SIGPIPE), hostHasOne);
        EXPECT_EQ(sigismember(&pending, SIGPIPE), hostHasOne) << "the host's own stays";
    }
    const timespec now{};
    sigtimedwait(&broken, nullptr, &now);
}

} // namespace
