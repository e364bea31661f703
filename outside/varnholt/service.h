// SPDX-License-Identifier: MIT
//
// A service: something that runs until it is told to stop, by another thread or by a signal.
#ifndef PLINTH_VARNHOLT_SERVICE_H
#define PLINTH_VARNHOLT_SERVICE_H

#include <memory>

#include "outside/zelexport.h"

/// What a request to stop arrives at; only services make and own such events.
class zelServiceEvent;

/// What services have in common.
class ZEL_EXPORT zelServiceBase {
public:
    static bool IsEventSignaled(const zelServiceEvent* event); ///< whether a stop has arrived there
};

/// Any thread may ask a service to stop, and ask whether it was asked; the rest is for one thread
/// at a time. The service must outlive the loop that serves it.
class ZEL_EXPORT zelService : public zelServiceBase {
public:
    zelService();
    zelService(const zelService&) = delete;
    zelService& operator=(const zelService&) = delete;

    /// Signals taken by StopOnSignal get back the disposition that they had, unless somebody has
    /// put a handler of his own in place of ours since.
    virtual ~zelService();

    /// Called by a serving loop each time it finds nothing to do, before it asks whether to stop.
    /// Here a service manager that can pause its services would hold the loop. This platform has
    /// none, so that the default does nothing.
    virtual void DoPause();

    /// Tells the service to stop. There is no way back: the stop event stays signalled.
    void RequestStop();

    /// Makes a signal of the process a request to stop, in place of the disposition that it has.
    /// False, with the cause as the last error, for a signal that cannot be caught or from which
    /// no handler can return (SIGSEGV and its like), and for one that another service has taken.
    bool StopOnSignal(int signal);

    /// Whether the service was told to stop.
    bool IsStopSignaled();

private:
    std::unique_ptr<zelServiceEvent> stopEvent; // stays the first field
};

#endif
