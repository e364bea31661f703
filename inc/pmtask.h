// SPDX-License-Identifier: MIT
//
// Tasks: whatever can be started, killed and asked how it ended.
//
// pmTask is that interface and pmExitStatus the record of how a task stands. pmThread runs a task
// on a thread of this process; pmManageTask can be found again by its thread handle, and
// pmStrictTask can be watched and never be killed. Child processes are tasks too (execproc.h).
//
// An object must outlive its thread: no destructor stops a thread or waits for one. There is no
// join either: wait for the ptkStrictTaskEvent of a strict task, or let the body say when it is
// done.
//
// Nothing here takes a lock. A record is written by whoever drives the task, and by its body if the
// body says how it ended; a reader on another thread has to agree with them.
//
// Killing is for threads that will not listen. It unwinds nothing: what the thread held it holds
// for ever.
#ifndef PLINTH_PMTASK_H
#define PLINTH_PMTASK_H

#include "errstatus.h"
#include "outside/varnholt/events.h"
#include "outside/zelexport.h"
#include "prolock.h"

/// The handle that refers to no thread, and the process that is none.
extern ZEL_EXPORT void* badThreadHandle;
extern ZEL_EXPORT int badProcHandle; ///< 0

/// How a task stands. Each setter sets its fields as one; what it does not name becomes false.
class ZEL_EXPORT pmExitStatus {
public:
    pmExitStatus() = default;

    /// Runs: no status yet, and the code is -1.
    void setAlive();
    /// Killed: no status, and the code is 0.
    void setKilled();
    /// Neither runs nor was killed. The code stays as it is.
    void setStatus(errstatus newStatus);
    /// Neither runs nor was killed. The status stays as it is.
    void setExitCode(long newCode);

    [[nodiscard]] bool IsAlive() const { return alive; }   ///< runs, or was never started
    [[nodiscard]] bool IsKilled() const { return killed; } ///< setKilled was the last to be called
    /// The outcome of the last operation on the task. Mind the name: ExitCode is the other one.
    [[nodiscard]] errstatus GetExitCode() const { return status; }
    /// The exit code of the task, -1 while there is none.
    [[nodiscard]] long ExitCode() const { return exitCode; }

private:
    bool alive = false;
    bool killed = false;
    errstatus status = errNone;
    long exitCode = -1;
};

/// The record of a thread.
class ZEL_EXPORT pmThreadExitStatus : public pmExitStatus {
public:
    pmThreadExitStatus() : threadHandle(badThreadHandle) {}
    /// Kept for whoever looks at the record in a debugger.
    void SetThreadHandle(void* handle) { threadHandle = handle; }

private:
    [[maybe_unused]] void* threadHandle;
};

/// Whatever can be started, killed and asked how it ended.
class ZEL_EXPORT pmTask {
public:
    pmTask() = default;
    pmTask(const pmTask&) = delete;
    pmTask& operator=(const pmTask&) = delete;
    virtual ~pmTask();
    virtual bool Start() = 0;                  ///< true if it runs
    virtual bool Kill() = 0;                   ///< true if it is stopped
    virtual pmExitStatus& GetExitStatus() = 0; ///< how it stands; the task's own record

    /// Hooks for the programs above: the library calls none of them.
    virtual void OnSuccessfullStart();
    virtual void OnFailedStart();     ///< the other one
    virtual bool Unlocked(bool flag); ///< true
};

/// The calling thread's own handle, the one that its task was started with; borrowed.
ZEL_EXPORT void* GetTaskSelfHandle();

/// A task on a thread of its own. A new object reads as alive before it is started, and its record
/// does not change when the body returns, unless the body writes it.
class ZEL_EXPORT pmThread : public pmTask {
public:
    pmThread();
    /// Closes the handle of a task whose record (its own one) no longer says alive.
    ~pmThread() override;

    /// False, and errThreadStart in the record, when there is no thread to be had.
    bool Start() override;
    /// Stops the thread at once, in a busy loop and in a blocked call alike; true if it is gone.
    /// The record says killed and the handle is given up in either case.
    bool Kill() override;
    pmExitStatus& GetExitStatus() override;
    /// The body of the thread; the result is the thread's exit code, which stays with the system.
    /// The starter goes on meanwhile, so the handle may not be known here yet. As with std::thread,
    /// an exception that leaves the body ends the program.
    virtual unsigned int ThreadRun() = 0;

protected:
    /// The thread's; badThreadHandle while there is none.
    [[nodiscard]] void* GetHandle() const { return handle; }
    /// Ends the thread and gives up its handle: Kill without the record.
    bool EndThread();

private:
    static unsigned int ThreadStarter(void* task);

    void* handle;
    pmThreadExitStatus exitStatus;
};

/// A thread task that can be watched and never be killed. Other than a plain pmThread it reads as
/// not alive until it is started.
class ZEL_EXPORT pmStrictTask : public pmThread {
public:
    bool Start() override;
    /// Marks the record and is false: the thread runs on.
    bool Kill() override;
    pmExitStatus& GetExitStatus() override;

    /// A mark on the whole process that stays; it means what the programs above make of it.
    static void SetNoFork();
    static bool IsNoForkSet(); ///< whether it was set

private:
    friend class ptkStrictTaskEvent;
    static bool noFork;

    pmExitStatus taskStatus;
};

/// Fires when the thread of a strict task has ended. The task must outlive the event.
class ZEL_EXPORT ptkStrictTaskEvent : public zelEvent {
public:
    /// Requires: the task has been started.
    explicit ptkStrictTaskEvent(pmStrictTask* watched);

    /// The thread's handle as the task has it now.
    void* GetProcess();

    /// The event as one of this class, or null if it is of another. Requires: not null.
    static ptkStrictTaskEvent* cast(zelEvent* event);

private:
    int GetKind() override;
    void* GetInfo() override;

    static const int eventKind;

    pmStrictTask* task;
};

/// A mailbox between two tasks, as an interface: nothing travels through it yet, and every
/// operation is true.
class ZEL_EXPORT pmInfoBridge {
public:
    pmInfoBridge(bool first, bool second); ///< the flags mean nothing here
    pmInfoBridge(const pmInfoBridge&) = delete;
    pmInfoBridge& operator=(const pmInfoBridge&) = delete;
    ~pmInfoBridge();

    /// Sets the other side. Requires: nobody holds the bridge's mutex.
    bool Initialize(void* const& handle);
    bool Send(char* data, int length);    ///< true
    bool Receive(char* data, int length); ///< true, and nothing is received
    bool TurnOn();                        ///< true

private:
    friend class pmManageTask;
    static void* const nullHandle;

    [[maybe_unused]] void* ownerThread;
    [[maybe_unused]] void* peerHandle;
    [[maybe_unused]] bool firstFlag;
    [[maybe_unused]] bool secondFlag;
    [[maybe_unused]] int words[3];
    proMutex mutex;
};

/// A thread task that is filed under its handle from a successful start until it is killed or
/// destroyed. Other than a plain pmThread it reads as not alive until it is started.
///
/// The file is one for the process and has no lock: Start, Kill, Fetch and destruction, of
/// whichever tasks, may not meet on different threads.
class ZEL_EXPORT pmManageTask : public pmThread {
public:
    /// The flags go to the bridge and mean nothing here.
    pmManageTask(bool first, bool second);
    ~pmManageTask() override;

    bool Start() override;
    /// As of a pmThread; a task whose thread could not be stopped can still be found.
    bool Kill() override;
    pmExitStatus& GetExitStatus() override;
    bool IsAlive() { return GetExitStatus().IsAlive(); } ///< what the record says

    /// The task filed under `handle`; null if there is none.
    static pmManageTask* Fetch(void* const& handle);

protected:
    [[nodiscard]] virtual bool MustKillOnDestroy() const; ///< false; the library does not ask

private:
    void Unfile();

    pmExitStatus taskStatus;
    void* taskKey; ///< stays after Kill
    pmInfoBridge bridge;
};

#endif
