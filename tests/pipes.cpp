// SPDX-License-Identifier: MIT
#include "pipestream.h"

#include <algorithm>
#include <iterator>
#include <memory>
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
    std::string noise(size, ' ');
    std::generate(noise.begin(), noise.end(), [state = 7u]() mutable {
        state = state * 1664525 + 1013904223;
        return static_cast<char>(state >> 24);
    });
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

TEST(PipeStream, MovesBlocksOfAnySizeWhileSignalsInterrupt) {
    const std::string noise = Noise(8u << 20);
    Streams pipe;
    std::thread writer([&] {
        for (std::size_t at = 0; at < noise.size(); at += at % 40000 + 1)
            pipe.out->write(noise.data() + at, static_cast<std::streamsize>(
                                                   std::min(at % 40000 + 1, noise.size() - at)));
        pipe.CloseWriter();
    });
    const support::SignalStorm storm;
    std::string received(noise.size() / 2, ' ');
    pipe.in->read(received.data(), static_cast<std::streamsize>(received.size()));
    received.append(std::istreambuf_iterator<char>(*pipe.in), {});
    writer.join();
    EXPECT_TRUE(received == noise);
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
    pthread_sigmask(SIG_UNBLOCK, &broken, nullptr);
}

TEST(BrokenPipe, IsNoSignalEitherWhenPartOfABlockWasWritten) {
    Streams pipe;
    std::thread reader([&] {
        pipe.in->get();
        DeletePipe(std::exchange(pipe.in, nullptr));
    });
    pipe.out->exceptions(std::ios::badbit);
    EXPECT_THROW(*pipe.out << std::string(1 << 20, 'x'), std::ios::failure);
    reader.join();
}

} // namespace
