// SPDX-License-Identifier: MIT
#ifndef PLINTH_BENCH_ECHOSERVER_H
#define PLINTH_BENCH_ECHOSERVER_H

#include <memory>
#include <thread>

#include "psock.h"
#include "psockmsg.h"

/// Answers each message with its own bytes, one connection after the other, on a thread of its own.
class EchoServer : public psockService {
public:
    EchoServer() : psockService(stop, 10) {
        Initialize(SystemAssigned);
        runs = std::thread([this] { Run(); });
    }
    EchoServer(const EchoServer&) = delete;
    EchoServer& operator=(const EchoServer&) = delete;
    ~EchoServer() override {
        stop.RequestStop();
        runs.join();
    }
    bool Execute(psockStream* stream) override {
        const std::unique_ptr<psockStream> owned(stream);
        dsXArray<char> message(nullptr);
        while (Read(*stream, message) == errOK && Write(*stream, message) == errOK)
            message.Clear();
        return false;
    }

private:
    zelService stop;
    std::thread runs;
};

#endif
