// SPDX-License-Identifier: MIT
//
// What moves bytes between streams and a command whose own streams are pipes, a block at a time and
// only where it need not wait, so that one thread can serve all three.
#ifndef PLINTH_EXAMPLES_PUMP_H
#define PLINTH_EXAMPLES_PUMP_H

#include <algorithm>
#include <istream>
#include <memory>
#include <ostream>

#include <pipestream.h>

#include "children.h"

/// Fires when a pipe takes at least one block without blocking, or when nobody reads it any more.
class WriteEvent : public zelPipeEvent {
public:
    explicit WriteEvent(oPipeStream& pipe) : zelPipeEvent(pipe.rdbuf()->pipe().fd()) {}
    int GetKind() override { return kind; }
    void* GetInfo() override { return this; }

private:
    inline static const int kind = zelEvent::AllocEventKind();
};

/// One of the three roads between the streams and the command. It is over when the event is gone.
class Road {
public:
    [[nodiscard]] zelEvent* Event() const { return event.get(); }
    [[nodiscard]] unsigned long long Bytes() const { return bytes; }

protected:
    std::unique_ptr<zelEvent> event;
    unsigned long long bytes = 0;
};

class Feed : public Road {
public:
    Feed(std::istream& file, oPipeStream* pipe) : from(file), to(pipe) {
        event = std::make_unique<WriteEvent>(*pipe);
    }
    /// Moves one block; closes the pipe after the last, so that the command sees the end.
    void Move() {
        char block[4096]; // what a pipe is sure to take once it takes anything
        from.read(block, sizeof block);
        to->write(block, from.gcount()).flush();
        if (*to)
            bytes += static_cast<unsigned long long>(from.gcount());
        if (!from || !*to) // a command may well end before it has read everything
            Close();
    }
    void Close() {
        event.reset();
        to.reset();
    }

private:
    std::istream& from;
    std::unique_ptr<oPipeStream, PipeDeleter> to;
};

class Collection : public Road {
public:
    Collection(iPipeStream* pipe, std::ostream& file) : from(pipe), to(file) {
        event.reset(pipe->GetReadEvent());
    }
    /// Moves what waits in the pipe, or `most` bytes of it.
    void Move(std::streamsize most = 65536) {
        char block[65536];
        const std::streamsize count = from->readsome(block, std::min<std::streamsize>(most, 65536));
        to.write(block, count);
        bytes += static_cast<unsigned long long>(count);
        if (from->eof())
            event.reset();
    }
    /// Whether more waits. The event tells only of what the stream has not taken in yet.
    [[nodiscard]] bool Waiting() const { return event && from->rdbuf()->in_avail() > 0; }
    void Close() {
        event.reset();
        from.reset();
    }

private:
    std::unique_ptr<iPipeStream, PipeDeleter> from;
    std::ostream& to;
};

#endif
