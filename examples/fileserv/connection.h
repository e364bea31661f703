// SPDX-License-Identifier: MIT
//
// A connection on which nobody is waited for without end, and no message is larger than allowed.
//
// It is a socket stream around another one, so that the library's message functions work through
// it: each of its reads and writes waits in short steps, and looks at the clock and at the stop
// event of the service between them.
#ifndef PLINTH_EXAMPLES_FILESERV_CONNECTION_H
#define PLINTH_EXAMPLES_FILESERV_CONNECTION_H

#include <chrono>
#include <memory>

#include <dsdatcol.h>
#include <psock.h>

namespace fileserv {

class Connection : public psockStream {
public:
    /// Each message must be through in `limit`. The service, if there is one, must outlive it.
    Connection(std::unique_ptr<psockStream> socket, std::chrono::seconds limit,
               zelService* stoppable);

    /// The next message, in place of what the array holds. After a failure of this or the next
    /// the two sides are no longer in step, and the connection is of no more use.
    errstatus Receive(dsXArray<char>& message, int largest);
    errstatus Send(dsXArray<char>& message);
    [[nodiscard]] bool IsUsable() const { return usable; }
    void GiveUp() { usable = false; }

    int Read(void* data, int length, bool flag) override;
    int Write(const void* data, int length, bool flag) override;
    bool Exception() override { return stream->Exception(); }
    int Select(fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, timeval* wait) override {
        return stream->Select(readSet, writeSet, exceptSet, wait);
    }
    int SelectWait(fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, timeval* wait) override {
        return stream->SelectWait(readSet, writeSet, exceptSet, wait);
    }
    errstatus getErr() override { return error != errOK ? error : stream->getErr(); }
    unsigned int getSock() override { return stream->getSock(); }
    void CloseSocket() override { stream->CloseSocket(); }

private:
    using Clock = std::chrono::steady_clock;

    bool Begin();
    bool Await(bool toWrite);
    bool Fail(errstatus reason);

    std::unique_ptr<psockStream> stream;
    const std::chrono::seconds patience;
    zelService* service;
    Clock::time_point deadline;
    long long allowed = 0; ///< bytes that may still be received for the message in hand
    char received[65536];
    int place = 0, unread = 0; ///< of what was received
    errstatus error = errOK;
    bool usable = true;
};

} // namespace fileserv

#endif
