// SPDX-License-Identifier: MIT
//
// Runs one command: its streams are moved by one thread that waits for all of them at once, for the
// command's end, for the time limit and for signals. What the command leaves behind is known, as
// this process becomes the reaper of all its descendants.
#ifndef PLINTH_TOOLS_SUPERVISOR_H
#define PLINTH_TOOLS_SUPERVISOR_H

#include <chrono>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "../examples/pump.h"
#include "descendants.h"

namespace tools {

/// What is to be run, and how.
struct Order {
    std::vector<std::string> command;
    std::string input, output, errors; ///< files; empty for the streams of this process
    std::optional<std::chrono::duration<double>> limit;
    std::chrono::duration<double> grace{5};
};

/// How a run went.
struct Record {
    bool ended = false; ///< the command has; not so if nothing could end it
    int code = 0;       ///< of the command's end; 128 + N if signal N ended it
    int signal = 0;     ///< that ended the command; 0 if it ended of its own accord
    bool limitReached = false;
    int stoppedBy = 0; ///< the signal to this process that ended it all
    std::chrono::duration<double> time{};
    std::optional<unsigned long long> in; ///< nothing if the command reads for itself
    unsigned long long out = 0, errors = 0;
    std::string failedFile;   ///< that could not be opened, read or written
    errstatus launch = errOK; ///< why the command could not be started
};

/// Fires for anything that the ground can wait for.
class Fires : public zelEvent {
public:
    explicit Fires(zelBaseEvent* watched) : zelEvent(watched) {}
    int GetKind() override { return kind; }
    void* GetInfo() override { return this; }

private:
    static const int kind;
};

/// The way of a pipe to where its bytes go, which may be slow to take them.
class Outlet {
public:
    /// To a stream and the descriptor behind it, of which none is closed here.
    Outlet(iPipeStream* pipe, std::ostream& stream, int descriptor);

    /// What is waited for now; null once the road is over.
    [[nodiscard]] zelEvent* Event();
    /// Goes on when that has fired.
    void Move();
    void Close() { road.Close(); }
    /// Whether it is the target that is waited for.
    [[nodiscard]] bool IsFull() const { return full; }
    [[nodiscard]] unsigned long long Bytes() const { return road.Bytes(); }

private:
    Collection road;
    std::ostream& to;
    Fires room; ///< the target takes a block
    bool regular;
    bool full = false; ///< bytes are at hand, and there is no room for them
};

class Supervisor {
public:
    explicit Supervisor(const Order& order);
    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;
    ~Supervisor();

    /// Runs the command to its end, and to that of its streams.
    Record Run();

private:
    using Clock = std::chrono::steady_clock;
    using Time = std::optional<Clock::time_point>; ///< nothing is never

    bool OpenFiles();
    void TakeSignals();
    bool Launch();
    void Loop();
    void MoveOne(int index);
    void OnSignals();
    void OnEnd();
    void OnTime();
    /// Sends a signal to all descendants, and SIGKILL to those that have not ended after a while.
    void End(int signal);
    void Reap() const;
    void NameHolders() const;
    void ShowProgress();
    [[nodiscard]] bool Moving();
    [[nodiscard]] bool Lingering() const;
    [[nodiscard]] int Patience() const;

    const Order& order;
    Record record;
    std::ifstream inputFile;
    std::ofstream outputFile, errorFile;
    std::unique_ptr<Feed> in;
    std::unique_ptr<Outlet> out, errors;
    std::string pipes[3];                 ///< what /proc calls them
    const std::vector<Process> strangers; ///< that are below this process already
    int signals = -1;                     ///< a descriptor from which signals are read
    std::unique_ptr<zelEvent> signalled, ended;
    void* process = nullptr;
    unsigned long id = 0;
    Clock::time_point start;
    Time limitAt, killAt, nameAt, giveUpAt, showAt;
    bool gaveUp = false; ///< waiting for the ends of the pipes
    int turn = 0;        ///< the stream that is looked at first
};

} // namespace tools

#endif
