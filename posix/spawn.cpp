// SPDX-License-Identifier: MIT
#include "posix/spawn.h"

#include <cstring>

#include "posix/processcalls.h"

namespace posix {

namespace {

/// A descriptor for the child, out of the way of what the child's own 0, 1 and 2 become: the host
/// may have closed those, and a pipe end may have got such a number. One copy would overwrite the
/// source of the next.
class Source {
public:
    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    ~Source() {
        if (copied)
            sys::close(descriptor);
    }
    /// 0, or the reason why there is no copy.
    int Set(int wanted, int target) {
        descriptor = wanted;
        if (wanted < 0 || wanted > STDERR_FILENO || wanted == target)
            return 0;
        const int copy = sys::fcntl(wanted, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        if (copy == -1)
            return errno;
        descriptor = copy;
        copied = true;
        return 0;
    }
    int descriptor = -1;

private:
    bool copied = false;
};

/// What happens in the child before the program: the standard streams are put in place and
/// everything else is closed.
class Actions {
public:
    Actions() { posix_spawn_file_actions_init(&actions); }
    Actions(const Actions&) = delete;
    Actions& operator=(const Actions&) = delete;
    ~Actions() { posix_spawn_file_actions_destroy(&actions); }

    int Set(const Source (&sources)[3]) {
        int error = 0;
        for (int target = 0; target < 3 && error == 0; ++target)
            if (const int source = sources[target].descriptor; source >= 0)
                error = posix_spawn_file_actions_adddup2(&actions, source, target);
        return error != 0 ? error : posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    }

    posix_spawn_file_actions_t actions;
};

/// How the child differs from its parent otherwise.
class Attributes {
public:
    explicit Attributes(bool ownSession) {
        posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        // A handler for SIGHUP becomes the default by itself; an ignored one is left ignored, so
        // that a child of what runs under nohup is spared too. The set is filled by hand:
        // sigfillset leaves out the signals that the C library keeps for itself, and the child
        // would start with these ignored.
        std::memset(&signals, 0xff, sizeof signals);
        sigdelset(&signals, SIGHUP);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (ownSession)
            flags |= POSIX_SPAWN_SETSID;
        posix_spawnattr_setflags(&attributes, static_cast<short>(flags));
    }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    ~Attributes() { posix_spawnattr_destroy(&attributes); }

    posix_spawnattr_t attributes;
};

} // namespace

int Spawn(pid_t* id, char* const* words, const int (&standard)[3], bool ownSession) {
    Source sources[3];
    for (int target = 0; target < 3; ++target)
        if (const int error = sources[target].Set(standard[target], target); error != 0)
            return error;
    Actions actions;
    if (const int error = actions.Set(sources); error != 0)
        return error;
    const Attributes attributes(ownSession);
    return sys::posix_spawnp(id, words[0], &actions.actions, &attributes.attributes, words,
                             environ);
}

} // namespace posix
