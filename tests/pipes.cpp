// SPDX-License-Identifier: MIT
#include "pipestream.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "outside/win32/handles.h"
#include "outside/win32/pipes.h"
#include "tests/tasks.h"

namespace {

constexpr int end = std::char_traits<char>::eof();

std::string Noise(std::size_t size) {
    std::string noise(size, ' ');
    std::generate(noise.begin(), noise.end(), std::mt19937(7));
    return noise;
}

/// A pipe whose read end is looked at raw.
struct Pipe {
    Pipe() { zelAnonymousPipe::Create(out, in); }
    /// Bytes in the pipe, -1 at its end.
    long Waiting() const {
        unsigned int count = 0;
        return PeekNamedPipe(in.fd(), nullptr, 0, nullptr, &count, nullptr)
                   ? static_cast<long>(count)
                   : -1;
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

class Pipes : public tasks::Weather {};

INSTANTIATE_TEST_SUITE_P(Weather, Pipes, testing::Bool(), tasks::NameOf);

TEST_P(Pipes, WriteInBlocksAndReadWithoutBlocking) {
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

TEST_P(Pipes, TellOfBytesAndOfTheEnd) {
    Streams pipe;
    ASSERT_EQ(pipe.status, errOK);
    errno = EDOM;
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
    EXPECT_EQ(errno, EDOM) << "what succeeds leaves the last error alone";
}

TEST_P(Pipes, MoveBlocksOfAnySize) {
    const std::string noise = Noise(8u << 20);
    Streams pipe;
    std::thread writer([&] {
        for (std::size_t at = 0; at < noise.size(); at += at % 40000 + 1)
            pipe.out->write(noise.data() + at, static_cast<std::streamsize>(
                                                   std::min(at % 40000 + 1, noise.size() - at)));
        pipe.CloseWriter();
    });
    std::string received(noise.size() / 2, ' ');
    pipe.in->read(received.data(), static_cast<std::streamsize>(received.size()));
    received.append(std::istreambuf_iterator<char>(*pipe.in), {});
    writer.join();
    EXPECT_TRUE(received == noise);
}

TEST(BrokenPipe, IsAFailedWriteAndNoSignal) {
    sigset_t broken, mask;
    sigemptyset(&broken);
    sigaddset(&broken, SIGPIPE);
    for (const std::string waiting : {"t", "p", "tp", ""}) { // for the thread, for the process
        pthread_sigmask(waiting.empty() ? SIG_UNBLOCK : SIG_BLOCK, &broken, nullptr);
        for (const char whom : waiting)
            whom == 't' ? pthread_sigqueue(pthread_self(), SIGPIPE, sigval{whom})
                        : sigqueue(getpid(), SIGPIPE, sigval{whom});
        Streams pipe;
        DeletePipe(std::exchange(pipe.in, nullptr));
        *pipe.out << "into the void" << std::flush;
        EXPECT_TRUE(pipe.out->bad());
        EXPECT_EQ(errMapError(), errBrokenPipe);
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        EXPECT_EQ(sigismember(&mask, SIGPIPE), !waiting.empty());
        std::string left;
        const timespec now{};
        for (siginfo_t info; sigtimedwait(&broken, &info, &now) == SIGPIPE;)
            left += static_cast<char>(info.si_value.sival_int);
        EXPECT_EQ(left, waiting) << "the host's own and no other";
    }
}

/// What could not be written goes out when it can.
TEST_P(Pipes, ThatAreFullKeepWhatIsPending) {
    const Pipe pipe;
    PipeBuf writer(pipe.out.fd()), reader(pipe.in.fd());
    const int descriptor = zelDescriptorOfHandle(pipe.out.fd());
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
    const std::string noise = Noise(4096);
    while (write(descriptor, std::string(4096, '-').data(), 4096) > 0)
        ;
    EXPECT_EQ(writer.sputn(noise.data(), 4096), 4096);
    EXPECT_EQ(writer.sputc('x'), end);
    EXPECT_EQ(writer.sync(), -1);
    for (long left = pipe.Waiting(); left > 0; --left)
        EXPECT_EQ(reader.sbumpc(), '-');
    EXPECT_EQ(writer.sputc('x'), 'x');
    for (const char c : noise)
        EXPECT_EQ(reader.sbumpc(), static_cast<unsigned char>(c));
    EXPECT_EQ(writer.sync(), 1);
    EXPECT_EQ(reader.sbumpc(), 'x');
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
