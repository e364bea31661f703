// SPDX-License-Identifier: MIT
//
// Events: one way to wait for everything that can end or have data.
//
// A zelBaseEvent stands for one thing of the system that can become ready, as a descriptor that
// can be polled. A zelEvent is what callers hold: it owns its base event, says what kind of event
// it is, and can be waited for alone, with others, or in any event loop of the caller's own.
//
// An event belongs to one thread at a time. What it watches must outlive it unless its class says
// otherwise.
#ifndef PLINTH_VARNHOLT_EVENTS_H
#define PLINTH_VARNHOLT_EVENTS_H

#include <memory>
#include <optional>

#include "outside/zelexport.h"

class zelInputPipe;

/// What can become ready. The descriptor is made or found on demand and belongs to the event.
class ZEL_EXPORT zelBaseEvent {
public:
    /// Which readiness of the descriptor counts. The end of a stream or pipe, and a failure that
    /// the next read would report, count as readable; a failure that the next write would report
    /// counts as writable.
    enum Readiness {
        Readable,    ///< a read would not wait
        Writable,    ///< a write would not wait
        Exceptional, ///< urgent data
    };

    zelBaseEvent() = default;
    zelBaseEvent(const zelBaseEvent&) = delete;
    zelBaseEvent& operator=(const zelBaseEvent&) = delete;
    virtual ~zelBaseEvent();

    /// The descriptor to poll, or -1 where there is none to be had: such an event never fires.
    virtual int GetDescriptor() = 0;
    virtual Readiness GetReadiness() const; ///< Readable by default
    /// Waits for this alone, at less cost than with a descriptor, `msec` milliseconds at the most
    /// and -1 for ever: whether it is ready. Nothing where there is no such way.
    virtual std::optional<bool> WaitAlone(int msec);
};

/// The readiness of one socket, which the event does not own.
class ZEL_EXPORT zelSelectEvent : public zelBaseEvent {
public:
    using Type = zelBaseEvent::Readiness; ///< which readiness counts

    zelSelectEvent(unsigned int socket, Type type); ///< any socket, or -1 for none

    int GetDescriptor() override;
    Readiness GetReadiness() const override;

private:
    unsigned int socket;
    Type type;
};

/// The end of a thread: signalled from then on. The thread is given by its handle (threads.h in
/// win32/) or by the record of its launch (threads.h here); either may be closed while the event
/// lives, and the event may go while the thread runs. A handle of anything else never fires.
class ZEL_EXPORT zelMOEvent : public zelBaseEvent {
public:
    /// Requires: `type` is 2.
    zelMOEvent(void* handle, int type);
    ~zelMOEvent() override;

    int GetDescriptor() override;
    std::optional<bool> WaitAlone(int msec) override;

private:
    void* watched = nullptr; ///< the record of the thread
    int descriptor = -1;
};

/// The end of a child process, whoever collects it. It outlives the process record.
class ZEL_EXPORT zelPROCESSEvent : public zelBaseEvent {
public:
    /// `process` is a record of Process_Launch.
    explicit zelPROCESSEvent(void* process);

    int GetDescriptor() override;

private:
    std::shared_ptr<void> watched; ///< the record
    std::shared_ptr<int> end;      ///< the descriptor, once it was asked for
};

/// What a caller waits for.
class ZEL_EXPORT zelEvent {
public:
    /// Takes over a base event that was made with `new`. A null base is an event that never fires.
    explicit zelEvent(zelBaseEvent* base);
    zelEvent(const zelEvent&) = delete;
    zelEvent& operator=(const zelEvent&) = delete;

    /// Called on an event that has fired, before a wait returns it. True accepts it; false means
    /// that the wait goes on, so whoever answers false has taken away what made it fire.
    virtual bool OnEventSignaled();
    /// Called before each wait.
    virtual void OnReset();
    virtual ~zelEvent();
    /// The kind of the concrete class, from AllocEventKind.
    virtual int GetKind() = 0;
    /// The concrete event, for its class's cast().
    virtual void* GetInfo() = 0;

    /// A new kind; one is taken for each event class while the library loads.
    static int AllocEventKind();

    /// True if the event stands signalled now. Calls neither hook.
    bool IsSignaled();
    /// Waits until the event fires, `msec` milliseconds at the most, -1 for ever. True if it fired.
    bool Wait(int msec);
    /// Waits until one of `count` events fires: the index of the first one that did, or -1 when
    /// the time has run out. Null pointers among the events never fire. With no event that can
    /// ever fire and no limit the call returns -1 at once instead of never.
    static int WaitAny(zelEvent* const* events, unsigned int count, int msec);
    /// A descriptor for the caller's own poll loop: ready (see GetReadiness of the base event)
    /// when the event is signalled. It belongs to the event. -1 if there is none.
    int GetDescriptor();

private:
    friend class zelEventSet;
    std::unique_ptr<zelBaseEvent> base;
};

/// Events that are waited for again and again: a wait costs what has fired, not what is in the set,
/// where zelEvent::WaitAny looks at every event each time. A set takes one descriptor once there is
/// an event in it, and one more for each event that watches what another one in it watches.
///
/// Events are not owned. Requires: an event is removed before it goes, and before what it watches
/// is closed. A set belongs to one thread at a time, with its events. A forked copy of the process
/// shares the set with the original and leaves it alone, or destroys it: what it removes, the
/// original waits for in vain.
class ZEL_EXPORT zelEventSet {
public:
    zelEventSet();
    zelEventSet(const zelEventSet&) = delete;
    zelEventSet& operator=(const zelEventSet&) = delete;
    ~zelEventSet();

    /// Adds an event: false, with the cause as the last error, if it is there already, has no
    /// descriptor, or watches what is always ready (a file on disk).
    bool Add(zelEvent* event);
    bool Remove(zelEvent* event); ///< false if it is not there

    /// Waits until an event fires, `msec` milliseconds at the most, -1 for ever, and gives it, or
    /// null when the time has run out. Of several that have fired each has its turn. An empty set
    /// without a limit gives null at once.
    ///
    /// OnReset is called on an event when it is added, and once it has fired before the next wait.
    zelEvent* Wait(int msec);

    /// A descriptor for the caller's own poll loop, readable when an event has fired; -1 if there
    /// is none to be had.
    int GetDescriptor();

private:
    class Watch;
    std::unique_ptr<Watch> watch;
};

/// The readiness of a pipe end, which the event does not own: a read end fires when it has bytes
/// or has come to its end, a write end when it takes bytes (at least 4096 without blocking) or
/// nobody reads any more.
class ZEL_EXPORT zelPipeEvent : public zelEvent {
public:
    explicit zelPipeEvent(void* handle); ///< of either end: asks the system which one it is
    explicit zelPipeEvent(const zelInputPipe& end); ///< of that end
    ~zelPipeEvent() override;
};

#endif
