// SPDX-License-Identifier: MIT
//
// What the contenders of the row about waiting wait for: of four kinds by turns, each made for
// whoever waits for such things. Nothing is ready but the last, a socket with a byte to read.
#ifndef PLINTH_BENCH_PEERS_WAITTHINGS_H
#define PLINTH_BENCH_PEERS_WAITTHINGS_H

#include <execproc.h>
#include <pipestream.h>
#include <pmtask.h>
#include <psock.h>

#include <csignal>
#include <memory>
#include <semaphore>
#include <vector>

#include <Poco/Net/StreamSocket.h>
#include <Poco/Net/StreamSocketImpl.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "plainsockets.h"

namespace things {

enum class Kind { Socket, Pipe, Thread, Child };

/// By turns, and so that the last is a socket.
inline Kind KindOf(std::size_t at, std::size_t count) {
    return static_cast<Kind>((count - 1 - at) % 4);
}

/// A child process without a program of its own, which ends with this or with its parent, and
/// keeps nothing open: what others hold must come to its end when they close it.
class Child {
public:
    Child() : id(plain::Must(fork())) {
        if (id == 0)
            close_range(0, ~0U, 0);
        while (id == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            pause();
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        kill(id, SIGKILL);
        waitpid(id, nullptr, 0);
    }
    plain::Socket Descriptor() const {
        return plain::Socket(static_cast<int>(syscall(SYS_pidfd_open, id, 0)));
    }

private:
    pid_t id;
};

/// For those who know descriptors.
class Descriptors {
public:
    explicit Descriptors(std::size_t count) {
        const plain::Listener listener;
        const plain::Socket end(eventfd(0, EFD_CLOEXEC)), childEnd = child.Descriptor();
        for (std::size_t i = 0; i < count; ++i) {
            int ends[2];
            switch (KindOf(i, count)) {
            case Kind::Socket:
                all.push_back(plain::Connect(listener.Port()));
                others.emplace_back(listener.Accept());
                break;
            case Kind::Pipe:
                plain::Must(pipe2(ends, O_CLOEXEC));
                all.emplace_back(ends[0]);
                others.emplace_back(ends[1]);
                break;
            case Kind::Thread:
                all.emplace_back(dup(end.Get()));
                break;
            case Kind::Child:
                all.emplace_back(dup(childEnd.Get()));
            }
        }
        plain::SendAll(others.back().Get(), "x", 1);
    }
    int operator[](std::size_t at) const { return all[at].Get(); }

private:
    Child child;
    std::vector<plain::Socket> all, others;
};

/// Sockets alone.
struct PocoSockets {
    explicit PocoSockets(std::size_t count) {
        const plain::Listener listener;
        for (std::size_t i = 0; i < count; ++i) {
            all.emplace_back(
                new Poco::Net::StreamSocketImpl(plain::Connect(listener.Port()).Release()));
            others.emplace_back(listener.Accept());
        }
        plain::SendAll(others.back().Get(), "x", 1);
    }
    std::vector<Poco::Net::StreamSocket> all;
    std::vector<plain::Socket> others;
};

struct PipeDeleter {
    template <typename Stream>
    void operator()(Stream* stream) const {
        DeletePipe(stream);
    }
};

/// A thread that sleeps until this goes.
class Sleeper : public pmStrictTask {
public:
    Sleeper() { Start(); }
    ~Sleeper() override {
        end.release();
        ptkStrictTaskEvent(this).Wait(-1);
    }
    unsigned int ThreadRun() override {
        end.acquire();
        return 0;
    }

private:
    std::binary_semaphore end{0};
};

class OurThings {
public:
    explicit OurThings(std::size_t count) : child("cat", 7) {
        const plain::Listener listener;
        oPipeStream* out = nullptr;
        iPipeStream *in = nullptr, *err = nullptr;
        for (std::size_t i = 0; i < count; ++i) {
            if (KindOf(i, count) == Kind::Socket) {
                sockets.emplace_back(psockServer::Connect("127.0.0.1", listener.Port()));
                others.emplace_back(listener.Accept());
            } else if (KindOf(i, count) == Kind::Pipe) {
                CreatePipeSt(&out, &in);
                outs.emplace_back(out);
                pipes.emplace_back(in);
            }
        }
        plain::SendAll(others.back().Get(), "x", 1);
        if (OpenPipeWithChildProc(&out, &in, &err, &child) != errOK)
            std::abort();
        outs.emplace_back(out);
        fromChild.emplace_back(in);
        fromChild.emplace_back(err);
    }
    OurThings(const OurThings&) = delete;
    OurThings& operator=(const OurThings&) = delete;
    ~OurThings() {
        outs.clear();
        child.WaitForProcess();
    }
    std::unique_ptr<zelEvent> EventOf(std::size_t at, std::size_t count) const {
        const std::size_t same = at / 4;
        switch (KindOf(at, count)) {
        case Kind::Socket:
            return std::make_unique<zelSocketEvent>(sockets[same].get(),
                                                    zelSocketEvent::Type::Readable);
        case Kind::Pipe:
            return std::unique_ptr<zelEvent>(pipes[same]->GetReadEvent());
        case Kind::Thread:
            return std::make_unique<ptkStrictTaskEvent>(&thread);
        case Kind::Child:
            break;
        }
        return std::unique_ptr<zelEvent>(child.GetExitEvent());
    }

private:
    using InputPipe = std::unique_ptr<iPipeStream, PipeDeleter>;
    std::vector<InputPipe> pipes, fromChild;
    std::vector<std::unique_ptr<oPipeStream, PipeDeleter>> outs;
    std::vector<std::unique_ptr<psockStream>> sockets;
    std::vector<plain::Socket> others;
    mutable Sleeper thread;
    mutable ExecProcess child;
};

} // namespace things

#endif
