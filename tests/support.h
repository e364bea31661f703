// SPDX-License-Identifier: MIT
//
// What several test families need.
#ifndef PLINTH_TESTS_SUPPORT_H
#define PLINTH_TESTS_SUPPORT_H

#include <atomic>
#include <chrono>
#include <clocale>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace support {

/// Descriptors that the process has open.
inline long OpenDescriptors() {
    using Walk = std::filesystem::directory_iterator;
    return std::distance(Walk("/proc/self/fd"), Walk()) - 1; // the walk's own
}

/// A table written as text: rows end in `;`, columns are set off by blanks, `-` is the empty text.
inline std::vector<std::vector<std::string>> Rows(const std::string& text) {
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line, ';');) {
        std::istringstream columns(line);
        std::vector<std::string>& row = rows.emplace_back();
        for (std::string column; columns >> column;)
            row.push_back(column == "-" ? "" : column);
    }
    return rows;
}

/// A private folder, removed at the end with all that is in it. A current directory that was set
/// meanwhile is set back.
class TempFolder {
public:
    explicit TempFolder(
        const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
        std::string name = (parent / "plinth-XXXXXX").string();
        path = mkdtemp(name.data());
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder() {
        std::filesystem::current_path(former);
        std::error_code tooDeep; // it has a descriptor open for each level
        std::filesystem::remove_all(path, tooDeep);
        if (tooDeep && std::system(("rm -rf " + path.string()).c_str()) != 0)
            std::abort();
    }

    std::filesystem::path path;

private:
    std::filesystem::path former = std::filesystem::current_path();
};

/// The locale is set back at its end.
class LocaleKept {
public:
    LocaleKept() : former(std::setlocale(LC_ALL, nullptr)) {}
    LocaleKept(const LocaleKept&) = delete;
    LocaleKept& operator=(const LocaleKept&) = delete;
    ~LocaleKept() { std::setlocale(LC_ALL, former.c_str()); }

private:
    const std::string former;
};

/// So many descriptors can be had while it lives, and no more.
class DescriptorLimit {
public:
    explicit DescriptorLimit(int spare) {
        getrlimit(RLIMIT_NOFILE, &former);
        rlimit lower = former;
        for (lower.rlim_cur = 0; spare >= 0 && lower.rlim_cur < former.rlim_cur; ++lower.rlim_cur)
            spare -= fcntl(static_cast<int>(lower.rlim_cur), F_GETFD) < 0;
        if (spare < 0)
            --lower.rlim_cur;
        setrlimit(RLIMIT_NOFILE, &lower);
    }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &former); }

private:
    rlimit former{};
};

/// Makes a system call fail with `error` from now on and for good, in this thread and those that
/// it starts: every such call, or those whose argument of that number has the value.
inline void FailCall(unsigned int call, int error, int argument = -1, unsigned int value = 0) {
    const bool any = argument < 0;
    const unsigned int number = offsetof(seccomp_data, nr), first = offsetof(seccomp_data, args);
    const unsigned int place = any ? number : first + 8 * static_cast<unsigned int>(argument);
    sock_filter rules[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, place),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, any ? call : value, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned int>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(rules), rules};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

/// Milliseconds that `call` takes.
template <typename Call>
long long MillisecondsOf(Call call) {
    const auto start = std::chrono::steady_clock::now();
    call();
    const auto took = std::chrono::steady_clock::now() - start;
    return std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
}

/// Interrupts the thread that makes it, or every thread of the process, about a thousand times a
/// second, in whatever call it is.
class SignalStorm {
public:
    explicit SignalStorm(bool everywhere = false) {
        struct sigaction action {};
        action.sa_handler = [](int) { ++Hits(); };
        sigaction(SIGURG, &action, &former);
        storm = std::thread([this, everywhere, maker = gettid()] {
            const timespec pause{0, 1000000};
            for (; !over; nanosleep(&pause, nullptr))
                for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
                    if (const pid_t id = std::stoi(task.path().filename());
                        everywhere || id == maker)
                        syscall(SYS_tgkill, getpid(), id, SIGURG);
        });
    }
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;
    ~SignalStorm() {
        over = true;
        storm.join();
        sigaction(SIGURG, &former, nullptr);
    }

    static std::atomic<int>& Hits() {
        static std::atomic<int> hits{0};
        return hits;
    }

private:
    struct sigaction former {};
    std::atomic<bool> over{false};
    std::thread storm;
};

} // namespace support

#endif
