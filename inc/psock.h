// SPDX-License-Identifier: MIT
//
// TCP: connected streams, the event that fires on one, and servers.
//
// A stream, a server and an event each belong to one thread at a time. Nothing here starts a
// thread, takes a lock or throws.
#ifndef PLINTH_PSOCK_H
#define PLINTH_PSOCK_H

#include "errstatus.h"
#include "outside/varnholt/events.h"
#include "outside/varnholt/service.h"
#include "outside/varnholt/sockets.h"
#include "outside/zelexport.h"

/// A connected socket. psockServer makes them, for clients and for accepted connections; whoever
/// gets one deletes it, which closes the connection.
///
/// A deriving class may stand for anything that moves bytes both ways; messages and standard
/// streams over a socket work through these operations alone.
class ZEL_EXPORT psockStream {
public:
    psockStream() = default;
    psockStream(const psockStream&) = delete;
    psockStream& operator=(const psockStream&) = delete;

    /// Receives up to `length` bytes and gives their number, waiting until there is at least one.
    /// -1 is a failure or the end of the stream; getErr() then tells the cause, errOK for an
    /// orderly end. `flag` true receives out-of-band data.
    virtual int Read(void* data, int length, bool flag) = 0;

    /// Sends up to `length` bytes and gives the number taken, which may be smaller; -1 is a
    /// failure. `flag` true sends out-of-band data.
    virtual int Write(const void* data, int length, bool flag) = 0;

    /// Whether an exceptional condition is pending, or cannot be asked for.
    virtual bool Exception() = 0;

    /// What the socket is ready for, within 10 microseconds: `wait` is overwritten with these and
    /// must not be null. Each set that is not null asks for its readiness and ends up holding the
    /// socket or nothing. Gives the number of sets that hold it, 0 for none, -1 for a failure.
    virtual int Select(fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, timeval* wait) = 0;

    /// Like Select, but waits as long as `wait` says; null is for ever.
    virtual int SelectWait(fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, timeval* wait) = 0;

    /// The cause of the last failure, errOK as long as there was none. Success does not reset it.
    virtual errstatus getErr() = 0;

    /// The descriptor; -1 (all bits set) once it is closed.
    virtual unsigned int getSock() = 0;

    /// Closes the connection. The object stays valid, and a second call does nothing.
    virtual void CloseSocket() = 0;

    virtual ~psockStream();

    /// Sockets need no start-up and no shutdown: these do nothing, at any time.
    static void Initialize();
    static void Shutdown(); ///< nothing, at any time

    /// Whether the host names of both ends are equal. False also where one cannot be found out.
    /// Asks the resolver, which may take its time.
    bool IsOnTheSameMachine();
};

/// Fires when a stream becomes ready. The event does not own the stream, which must outlive it.
class ZEL_EXPORT zelSocketEvent : public zelEvent {
public:
    using Type = zelSelectEvent::Type; ///< readable, writable or exceptional

    zelSocketEvent(psockStream* stream, Type type); ///< fires when `stream` is ready in that way

    psockStream* GetSockStream(); ///< as it was given

    /// The event as a socket event, or null if it is of another kind. Requires: not null.
    static zelSocketEvent* cast(zelEvent* event);

private:
    int GetKind() override;
    void* GetInfo() override;

    static const int eventKind;

    psockStream* stream;
    [[maybe_unused]] Type type;
};

/// The port that lets the system choose one; psockServer::GetPort tells which.
ZEL_EXPORT extern const int SystemAssigned;

/// A TCP listener with a loop that hands one connection after the other to Execute, and the
/// client side of it. Derive from one of the three classes below, which say how the loop waits.
///
/// A server on a host with IPv6 accepts IPv4 as well. Everything runs on the thread that calls;
/// further connections queue up meanwhile, as far as the backlog reaches: 128, or the number in
/// the environment variable QVZ_FSERV_BACKLOG, but at least 5.
class ZEL_EXPORT psockServer {
public:
    /// How a wait for a connection ended.
    enum SockWaitRC {
        SockWaitFailed = 0,     ///< told on standard output
        SockWaitConnection = 1, ///< one can be accepted
        SockWaitTimeout = 2,    ///< none came in time
    };

    psockServer();
    psockServer(const psockServer&) = delete;
    psockServer& operator=(const psockServer&) = delete;

    /// Closes the listening socket. Streams that Execute has kept stay open.
    virtual ~psockServer();

    /// Serves until the loop ends.
    virtual void Run() = 0;

    /// Handles one connection; true ends the loop. The handler owns `stream`, which is null where
    /// memory for it has run out.
    virtual bool Execute(psockStream* stream) = 0;

    /// Called when a limited wait ends without a connection; true ends the loop. False by default.
    virtual bool DoIdle();

    /// Listens on a port of all addresses of the host: true, or false with a line on standard
    /// error (none where `port` is out of range). One call for each object.
    bool Initialize(int port);

    /// The port on which the server listens; 0 as long as there is none.
    int GetPort() const;

    /// A stream to the first address of a host, or null, with the cause as the last error. The
    /// caller owns it. The other addresses of a host are not tried, and the wait for one that does
    /// not answer is the system's: minutes.
    static psockStream* Connect(const char* host, int port);

    /// Accepts a connection and gives what Execute says to it.
    ///
    /// An accept that fails is tried again: at once if only that connection was lost, with a
    /// line; after a while, from 10 milliseconds up to a second, for any other cause, such as
    /// descriptors or memory that have run out, with one line a second at the most. Where there
    /// is no socket that listens, the result is true and ends the loop.
    bool AcceptAndExecute();

    /// The loop: waits `msec` milliseconds (-1 for ever, 0 not at all), then calls
    /// AcceptAndExecute or DoIdle, until one of them gives true or the wait fails.
    void WaitAndProcess(int msec);

protected:
    /// Waits for a connection. A failure is reported on standard output, in five lines.
    SockWaitRC Wait(int msec);

private:
    [[maybe_unused]] int reserved = 0;
    unsigned int socket;
};

/// Serves until Execute gives true.
class ZEL_EXPORT psockBlockingServer : public psockServer {
public:
    void Run() override;
};

/// Serves what is waiting and comes back.
class ZEL_EXPORT psockNonBlockingServer : public psockServer {
public:
    void Run() override;
    bool DoIdle() override;

    bool IsConnectionReceived(); ///< whether one waits; never blocks
};

/// Serves until Execute gives true or the service is told to stop, which is looked at after each
/// `pollMsec` milliseconds without a connection. The service must outlive the server.
class ZEL_EXPORT psockService : public psockServer {
public:
    psockService(zelService& service, int pollMsec); ///< borrows `service`

    void Run() override;
    bool DoIdle() override;

private:
    zelService& service;
    int pollMsec;
};

#endif
