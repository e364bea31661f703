// SPDX-License-Identifier: MIT
//
// A test harness for side effects: a picture of what a process holds and how it is set up, taken
// before a piece of work and after it, and what differs between the two in words. Beside the C++
// standard library it needs nothing but Linux, and of this library nothing at all.
//
//     hostpicture::Watch watch;
//     watch.Announce("environment TZ"); // what the work changes on purpose
//     Work();
//     std::cout << watch.Differences(); // "descriptor 7: none -> socket:[4711]\n", or nothing
//
// For GoogleTest, testing/hostlistener.h does this around every test case.
#ifndef PLINTH_TESTING_HOSTPICTURE_H
#define PLINTH_TESTING_HOSTPICTURE_H

#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <locale>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <locale.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace hostpicture {

/// "SIGPIPE", "SIGRTMIN+3", or "signal 33" for one that has no name.
inline std::string NameOf(int signal) {
    if (signal >= SIGRTMIN && signal <= SIGRTMAX)
        return "SIGRTMIN+" + std::to_string(signal - SIGRTMIN);
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 32)
    if (const char* const name = sigabbrev_np(signal))
        return std::string("SIG") + name;
#endif
    return "signal " + std::to_string(signal);
}

/// What the process holds at one moment, as subjects with a value each:
///
///     descriptor 7: pipe:[4711] nonblocking close-on-exec
///     thread 4712, child 4713: the name that the system shows for it
///     SIGPIPE: default, ignored, or handler 0x5555... with what it blocks and its flags
///     blocked SIGINT, pending SIGINT: yes   (of the thread that looks)
///     working directory, umask, locale, locale of C++, locale of the thread
///     environment HOME: "/root"
///
/// Looking changes nothing, takes one descriptor for a moment, and no lock: other threads may go
/// on, but what they open and close meanwhile may be seen or not. The environment is read as it
/// stands, so nobody may change it just then.
///
/// Not seen: what the work has read, written, allocated or mapped; limits and timers; a descriptor
/// that was closed and opened anew on the same thing.
class Picture {
public:
    Picture() {
#if defined(__SANITIZE_THREAD__)
        std::thread([] {}).join(); // the sanitizer starts a thread of its own beside the first
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
        std::thread([] {}).join();
#endif
#endif
        LookAtDescriptors();
        LookAtThreadsAndChildren();
        LookAtSignals();
        LookAtSettings();
    }

    /// Each difference: its subject, and "BEFORE -> NOW". Where one of the two pictures could not
    /// look, for want of a descriptor or of /proc, that is the difference.
    std::vector<std::pair<std::string, std::string>> Since(const Picture& before) const {
        std::vector<std::pair<std::string, std::string>> differences;
        for (const Picture* const one : {&before, this})
            for (const auto& [kind, reason] : one->unseen)
                differences.emplace_back(kind, "cannot be looked at: " + reason);
        std::map<std::string, std::string> subjects = before.held;
        subjects.insert(held.begin(), held.end());
        for (const auto& [subject, any] : subjects) {
            const std::string kind = subject.substr(0, subject.find(' '));
            const auto then = before.held.find(subject), now = held.find(subject);
            const bool stays = then != before.held.end() && now != held.end();
            // A child that executes a program gets another name.
            const bool same = stays && (then->second == now->second || kind == "child");
            if (!same && unseen.count(kind) + before.unseen.count(kind) == 0)
                differences.emplace_back(subject,
                                         (then != before.held.end() ? then->second : "none") +
                                             " -> " + (now != held.end() ? now->second : "none"));
        }
        return differences;
    }

private:
    std::map<std::string, std::string> held;   // by subject
    std::map<std::string, std::string> unseen; // why, by kind: the first word of the subject

    /// The numbers that a folder of /proc lists, but for that of the descriptor that reads it.
    std::vector<int> Numbers(const char* folder, const char* kind) {
        std::vector<int> numbers;
        DIR* const stream = opendir(folder);
        if (stream == nullptr) {
            unseen[kind] = std::strerror(errno);
            return numbers;
        }
        while (const dirent* const entry = readdir(stream))
            if (entry->d_name[0] != '.')
                numbers.push_back(std::stoi(entry->d_name));
        const int own = dirfd(stream);
        if (std::strcmp(kind, "descriptor") == 0)
            for (auto at = numbers.begin(); at != numbers.end();)
                at = *at == own ? numbers.erase(at) : at + 1;
        closedir(stream);
        return numbers;
    }

    static bool ReadFile(const std::string& path, std::string& text) {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0)
            return false;
        char block[4096];
        ssize_t size;
        text.clear();
        while ((size = read(file, block, sizeof block)) > 0 || (size < 0 && errno == EINTR))
            text.append(block, size > 0 ? static_cast<std::size_t>(size) : 0);
        const int error = errno;
        close(file);
        errno = error;
        return size == 0;
    }

    template <typename Value> // whatever the locale is
    static std::string Shown(const char* format, Value value) {
        char text[40];
        std::snprintf(text, sizeof text, format, value);
        return text;
    }

    static std::string NameOfTask(const std::string& id) {
        std::string name;
        if (!ReadFile("/proc/" + id + "/comm", name) || name.empty())
            return "";
        name.pop_back();
        return name;
    }

    void LookAtDescriptors() {
        for (const int number : Numbers("/proc/self/fd", "descriptor")) {
            char target[4096];
            const std::string subject = "descriptor " + std::to_string(number);
            const ssize_t size = readlink(("/proc/self/fd/" + std::to_string(number)).c_str(),
                                          target, sizeof target);
            if (size < 0)
                continue; // gone meanwhile
            std::string& value = held[subject];
            value.assign(target, static_cast<std::size_t>(size));
            const int status = fcntl(number, F_GETFL), flags = fcntl(number, F_GETFD);
            if (status >= 0 && (status & O_NONBLOCK) != 0)
                value += " nonblocking";
            if (flags >= 0 && (flags & FD_CLOEXEC) != 0)
                value += " close-on-exec";
        }
    }

    void LookAtThreadsAndChildren() {
        for (const int id : Numbers("/proc/self/task", "thread")) {
            const std::string number = std::to_string(id);
            std::string children;
            held["thread " + number] = NameOfTask(number);
            // Where the system keeps no such list, what it does know must do.
            siginfo_t any{};
            if (!ReadFile("/proc/self/task/" + number + "/children", children) && id == getpid() &&
                waitid(P_ALL, 0, &any, WEXITED | WNOHANG | WNOWAIT) == 0)
                held["child of some number"] = "";
            for (std::size_t at = 0, end; (end = children.find(' ', at)) != children.npos;
                 at = end + 1) {
                const std::string child = children.substr(at, end - at);
                held["child " + child] = NameOfTask(child);
            }
        }
    }

    void LookAtSignals() {
        sigset_t blocked, pending;
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        sigpending(&pending);
        for (int signal = 1; signal < NSIG; ++signal) {
            const std::string name = NameOf(signal);
            if (sigismember(&blocked, signal) == 1)
                held["blocked " + name] = "yes";
            if (sigismember(&pending, signal) == 1)
                held["pending " + name] = "yes";
            struct sigaction action {};
            if (sigaction(signal, nullptr, &action) != 0)
                continue; // one that the C library keeps for itself
            const bool isDefault = action.sa_handler == SIG_DFL;
            int flags = action.sa_flags;
            std::string& value = held[name];
            if (isDefault || action.sa_handler == SIG_IGN) {
                flags &= SA_NOCLDSTOP | SA_NOCLDWAIT; // the others say nothing without a handler
                value = isDefault ? "default" : "ignored";
            } else {
                value = "handler " + Shown("%p", reinterpret_cast<void*>(action.sa_handler));
                for (int other = 1; other < NSIG; ++other)
                    if (sigismember(&action.sa_mask, other) == 1)
                        value += (value.find(" blocks") == value.npos ? " blocks " : ",") +
                                 std::to_string(other);
            }
            if (flags != 0)
                value += " flags " + Shown("%#x", flags);
        }
    }

    void LookAtSettings() {
        char folder[4096];
        const ssize_t size = readlink("/proc/self/cwd", folder, sizeof folder);
        held["working directory"] =
            size < 0 ? std::strerror(errno) : std::string(folder, static_cast<std::size_t>(size));
        // The call that gives the umask sets it, and other threads may just then make files.
        std::string status;
        const bool seen = ReadFile("/proc/self/status", status);
        const std::size_t at = status.find("\nUmask:\t");
        if (seen && at != status.npos)
            held["umask"] = status.substr(at + 8, status.find('\n', at + 1) - at - 8);
        else
            unseen["umask"] = seen ? "an old system" : std::strerror(errno);

        held["locale"] = std::setlocale(LC_ALL, nullptr);
        held["locale of C++"] = std::locale().name();
        const locale_t own = uselocale(nullptr);
        held["locale of the thread"] =
            own == LC_GLOBAL_LOCALE ? "global" : Shown("%p", static_cast<void*>(own));
        for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
            const std::string whole = *entry;
            const std::size_t sign = whole.find('=');
            if (sign != whole.npos)
                held["environment " + whole.substr(0, sign)] = '"' + whole.substr(sign + 1) + '"';
        }
    }
};

/// A picture that was taken when it was made, and what may differ from it.
class Watch {
public:
    /// From now on a difference of this subject counts for nothing: one as in the list above, or
    /// only the first words of it, like "descriptor" for all of them, or "environment".
    void Announce(const std::string& subject) { announced.insert(subject); }

    /// What differs by now and was not announced, one line for each; empty if nothing does. A
    /// thread, child or descriptor that is just going, and a signal on its way, have so long to go.
    std::string Differences(std::chrono::milliseconds patience = std::chrono::seconds(2)) const {
        using Clock = std::chrono::steady_clock;
        for (const auto end = Clock::now() + patience;;) {
            std::string told;
            bool mayPass = false;
            for (const auto& [subject, difference] : Picture().Since(before)) {
                if (IsAnnounced(subject))
                    continue;
                told += subject + ": " + difference + '\n';
                for (const char* const kind : {"descriptor", "thread", "child", "pending"})
                    mayPass = mayPass || subject.compare(0, std::strlen(kind), kind) == 0;
            }
            if (!mayPass || Clock::now() >= end)
                return told;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

private:
    Picture before;
    std::set<std::string> announced;

    bool IsAnnounced(const std::string& subject) const {
        for (const std::string& one : announced)
            if (subject == one || subject.compare(0, one.size() + 1, one + ' ') == 0)
                return true;
        return false;
    }
};

} // namespace hostpicture

#endif
