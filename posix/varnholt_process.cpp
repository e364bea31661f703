// SPDX-License-Identifier: MIT
#include "outside/varnholt/process.h"

#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "outside/varnholt/events.h"
#include "outside/win32/handles.h"
#include "posix/childwatch.h"
#include "posix/commandline.h"
#include "posix/handleobject.h"
#include "posix/innerlock.h"
#include "posix/processcalls.h"
#include "posix/spawn.h"

namespace {

constexpr long codeNotKnown = -1; ///< of a child that the host has collected

/// Guards all children; nothing blocks under it.
constinit posix::InnerLock childLock;

/// Lets no process be forked while another thread has that lock, which nobody would give back in
/// the copy. Asked for late, so that what allocators do at forks is done inside of this: memory is
/// asked for under the lock. False where there is none. Requires: this thread has the lock.
bool LockAtForks() {
    static constinit bool locks = false;
    if (!locks)
        locks = sys::pthread_atfork([] { childLock.lock(); }, [] { childLock.unlock(); },
                                    [] { childLock.UnlockInCopy(); }) == 0;
    return locks;
}

/// A child that was launched here, as its record's handle points to it.
///
/// Those whose end is not recorded yet stand in a table by their id, also after their record was
/// let go, so that no signal is sent to an id that is another's by now, and no child is left
/// uncollected. Beside the table the handle holds the record, and so does every event.
class Child : public posix::HandleObject {
public:
    using Pointer = std::shared_ptr<Child>;

    /// Starts a child; 0, or the reason why there is none.
    static int Launch(char* const* words, const int (&standard)[3], bool ownSession, void** process,
                      unsigned long* id);
    /// The child of that id whose end is not recorded, or null.
    static Pointer Find(unsigned long id);
    /// The record behind a handle, or null with the error set for a word that stands for none.
    static Pointer Of(void* process);

    /// Whether the child has ended, and its code then. `collect` makes the system forget it.
    bool HasEnded(bool collect, long* exitCode);
    /// Blocks until the child has ended, whoever collects it. The lock is given up meanwhile.
    /// False when there is no waiting for it.
    bool AwaitEnd(std::unique_lock<posix::InnerLock>& lock);
    bool Signal(int signal);
    /// Null where only a thread can watch the child.
    posix::SharedDescriptor EndDescriptor();
    posix::SharedDescriptor Watch() { return posix::WatchChild(pid); }
    void ReleaseHandle() override;

private:
    using Table = std::map<pid_t, Pointer>;

    static Table& Children();
    static void CollectAbandoned();
    static int WaitId(pid_t pid, int descriptor, siginfo_t* info, int options);

    void OpenDescriptor();
    void RecordEnd(long exitCode);
    int Descriptor() const { return end ? *end : -1; }

    pid_t pid = 0;
    bool ended = false;
    Pointer self; ///< as the handle holds it; empty once the record was let go
    long code = codeNotKnown;
    posix::SharedDescriptor end = posix::NoDescriptor(); ///< of the process, until it has ended
};

// Never destroyed: the last destructors of a program may let records go. An empty one owns nothing.
Child::Table& Child::Children() {
    alignas(Table) static char place[sizeof(Table)];
    static Table& children = *new (place) Table;
    return children;
}

int Child::Launch(char* const* words, const int (&standard)[3], bool ownSession, void** process,
                  unsigned long* id) {
    // Whatever needs memory comes before the child, so that none can be lost for want of it.
    const Pointer child = std::make_shared<Child>();
    Table entry;
    entry.emplace(0, child);
    Table::node_type node = entry.extract(entry.begin());

    std::unique_lock<posix::InnerLock> lock(childLock);
    if (!LockAtForks())
        return ENOMEM;
    CollectAbandoned();
    lock.unlock();
    pid_t started = 0;
    if (const int error = posix::Spawn(&started, words, standard, ownSession); error != 0)
        return error;
    lock.lock();
    child->pid = started;
    if (const Pointer former = Find(static_cast<unsigned long>(started)))
        former->RecordEnd(
            codeNotKnown); // the number is used again: the host has collected that one
    node.key() = started;
    Children().insert(std::move(node));
    child->OpenDescriptor();
    *id = static_cast<unsigned long>(started);
    child->self = child;
    *process = static_cast<posix::HandleObject*>(child.get());
    return 0;
}

Child::Pointer Child::Find(unsigned long id) {
    const auto found = Children().find(static_cast<pid_t>(id));
    return found == Children().end() ? nullptr : found->second;
}

Child::Pointer Child::Of(void* process) {
    Child* child = nullptr;
    if ((reinterpret_cast<long>(process) & 1) == 0)
        child = dynamic_cast<Child*>(static_cast<posix::HandleObject*>(process));
    if (child == nullptr) {
        errno = ESRCH;
        return nullptr;
    }
    return child->self;
}

/// Collects the children that have ended since their record was let go.
void Child::CollectAbandoned() {
    for (auto at = Children().begin(); at != Children().end();) {
        const Pointer child = (at++)->second;
        long unused = 0;
        if (!child->self)
            child->HasEnded(true, &unused);
    }
}

void Child::OpenDescriptor() {
    const sys::KeepErrno keep;
    *end = sys::pidfd_open(pid);
    siginfo_t info;
    // Once the host has collected the child, its number may be a stranger's, who is no child.
    const bool isOurs =
        *end != -1 ? WaitId(pid, *end, &info, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD
                   : errno != ESRCH;
    if (!isOurs)
        RecordEnd(codeNotKnown);
}

void Child::RecordEnd(long exitCode) {
    ended = true;
    code = exitCode;
    end.reset();
    if (const auto found = Children().find(pid);
        found != Children().end() && found->second.get() == this)
        Children().erase(found);
}

int Child::WaitId(pid_t pid, int descriptor, siginfo_t* info, int options) {
    return sys::retry([&] {
        return descriptor != -1 ? sys::waitid(P_PIDFD, static_cast<id_t>(descriptor), info, options)
                                : sys::waitid(P_PID, static_cast<id_t>(pid), info, options);
    });
}

bool Child::HasEnded(bool collect, long* exitCode) {
    if (ended) {
        *exitCode = code;
        return true;
    }
    siginfo_t info{};
    const int before = errno;
    if (WaitId(pid, Descriptor(), &info, WEXITED | WNOHANG | (collect ? 0 : WNOWAIT)) == -1) {
        if (errno != ECHILD)
            return false;
        errno = before;
        RecordEnd(codeNotKnown);
        *exitCode = code;
        return true;
    }
    if (info.si_pid == 0)
        return false;
    *exitCode = info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
    if (collect)
        RecordEnd(*exitCode);
    return true;
}

bool Child::AwaitEnd(std::unique_lock<posix::InnerLock>& lock) {
    if (ended)
        return true;
    const posix::SharedDescriptor held = end; // another thread may record the end meanwhile
    const int descriptor = *held;
    lock.unlock();
    siginfo_t info;
    const int before = errno;
    const bool over = WaitId(pid, descriptor, &info, WEXITED | WNOWAIT) == 0 || errno == ECHILD;
    if (over)
        errno = before;
    lock.lock();
    return over;
}

bool Child::Signal(int signal) {
    // Without a descriptor there is only the number, which is free for others once the host has
    // collected the child.
    long unused = 0;
    if (ended || (*end == -1 && HasEnded(false, &unused) && ended)) {
        errno = ESRCH;
        return false;
    }
    return (*end != -1 ? sys::pidfd_send_signal(*end, signal) : sys::kill(pid, signal)) == 0;
}

posix::SharedDescriptor Child::EndDescriptor() {
    if (!ended && *end == -1)
        OpenDescriptor(); // there may have been too many open at the launch
    if (ended)
        return posix::SignaledDescriptor();
    return *end != -1 ? end : nullptr;
}

void Child::ReleaseHandle() {
    const sys::KeepErrno keep;
    const std::lock_guard<posix::InnerLock> guard(childLock);
    const Pointer last = std::move(self);
    long unused = 0;
    HasEnded(true, &unused);
}

} // namespace

bool Process_Launch(void** process, unsigned long* id, const char* command, void*, void* in,
                    void* out, void* err, int mode) {
    const posix::CommandLine line(command);
    if (!line.NamesAProgram()) {
        errno = EINVAL;
        return false;
    }
    const int standard[] = {zelDescriptorOfHandle(in), zelDescriptorOfHandle(out),
                            zelDescriptorOfHandle(err)};
    const int before = errno;
    const int error = Child::Launch(line.Words(), standard, mode == 2, process, id);
    errno = error != 0 ? error : before;
    return error == 0;
}

bool Process_Wait(void* process, long* code, bool wait, bool collect) {
    const Child::Pointer child = Child::Of(process);
    if (child == nullptr)
        return false;
    std::unique_lock<posix::InnerLock> lock(childLock);
    if (wait && !child->AwaitEnd(lock))
        return false;
    return child->HasEnded(collect, code);
}

AliveStatus Process_GetStatus(void* process) {
    const sys::KeepErrno keep;
    long unused = 0;
    return Process_GetExitCode(process, &unused) || errno != EBUSY ? psEnded : psAlive;
}

bool Process_GetExitCode(void* process, long* code) {
    const Child::Pointer child = Child::Of(process);
    if (child == nullptr)
        return false;
    const std::lock_guard<posix::InnerLock> guard(childLock);
    if (child->HasEnded(false, code))
        return true;
    errno = EBUSY;
    return false;
}

bool Process_Kill(void* process) {
    const Child::Pointer child = Child::Of(process);
    if (child == nullptr)
        return false;
    const std::lock_guard<posix::InnerLock> guard(childLock);
    return child->Signal(SIGKILL);
}

bool Process_Interrupt(unsigned long id) {
    const std::lock_guard<posix::InnerLock> guard(childLock);
    if (const Child::Pointer child = Child::Find(id))
        return child->Signal(SIGINT);
    errno = ESRCH;
    return false;
}

void Process_Free(void* process) {
    CloseHandle(process);
}

zelPROCESSEvent::zelPROCESSEvent(void* process) {
    const sys::KeepErrno keep;
    watched = Child::Of(process);
}

int zelPROCESSEvent::GetDescriptor() {
    if (watched && (!end || *end == -1)) {
        const sys::KeepErrno keep;
        Child* const child = static_cast<Child*>(watched.get());
        std::unique_lock<posix::InnerLock> lock(childLock);
        end = child->EndDescriptor();
        lock.unlock();
        if (!end)
            end = child->Watch(); // asks the loader, and waits for whoever loads something
    }
    return end ? *end : -1;
}
