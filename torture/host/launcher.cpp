// SPDX-License-Identifier: MIT
//
// usage: launcher CONDITION PROGRAM [ARGUMENT...]
//
// Runs a test on a hostile host: with what goes over from one program to the next (limits,
// descriptors, the user, variables), and under a storm of signals from outside. What can only be
// set up inside the process, testing/main.cpp does, told by variables. Ends like the program.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace {

[[noreturn]] void Die(const char* what) {
    std::perror(what);
    _exit(125);
}

void LimitDescriptors(rlim_t soft, rlim_t hard) {
    const rlimit limit{soft, hard};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
        Die("setrlimit");
}

void TakeDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    LimitDescriptors(limit.rlim_max < 8192 ? limit.rlim_max : 8192, limit.rlim_max);
    const int null = open("/dev/null", O_RDWR);
    for (int number = 3; number <= 2000; ++number)
        if (number != null && dup2(null, number) != number)
            Die("dup2");
}

void BecomeAnOrdinaryUser() {
    constexpr unsigned int nobody = 65534;
    if (getuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0))
        Die("setuid");
}

/// What the program is to find; `report` is where it tells of its cases without a standard output.
void Prepare(std::string_view condition, const std::string& report) {
    const auto variable = [](const char* name, const char* value) { setenv(name, value, 1); };
    if (condition == "storm")
        variable("PLINTH_HOST_STORM", "1");
    else if (condition == "limit")
        LimitDescriptors(40, 40);
    else if (condition == "taken")
        TakeDescriptors();
    else if (condition == "closed") {
        variable("GTEST_OUTPUT", ("xml:" + report).c_str());
        variable("GTEST_BRIEF", "1");
        for (int number = 0; number < 3; ++number)
            close(number);
    } else if (condition == "C" || condition == "C.UTF-8" || condition == "en_US.ISO-8859-1")
        variable("PLINTH_HOST_LOCALE", std::string(condition).c_str());
    else if (condition == "odd-zone")
        variable("TZ", "AAA-13:47:11BBB-14:59:59,0/-167,365/167");
    else if (condition == "bad-zone")
        variable("TZ", "::no/such//zone\xFF=");
    else if (condition == "user") {
        variable("PATH", "/usr/local/bin:/usr/bin:/bin"); // an ordinary user's, without root's own
        BecomeAnOrdinaryUser();
    } else
        Die("there is no such condition");
}

std::vector<int> Numbers(const std::string& folder) {
    std::vector<int> numbers;
    if (DIR* const stream = opendir(folder.c_str())) {
        while (const dirent* const entry = readdir(stream))
            if (entry->d_name[0] != '.')
                numbers.push_back(std::atoi(entry->d_name));
        closedir(stream);
    }
    return numbers;
}

/// Interrupts every thread of the process and of those that come of it. How many.
long Strike(pid_t process) {
    long struck = 0;
    const std::string folder = "/proc/" + std::to_string(process) + "/task/";
    for (const int thread : Numbers(folder)) {
        // Who has no handler for it does not notice.
        struck += syscall(SYS_tgkill, process, thread, SIGURG) == 0;
        if (std::FILE* const file =
                std::fopen((folder + std::to_string(thread) + "/children").c_str(), "re")) {
            for (int child; std::fscanf(file, "%d", &child) == 1;)
                struck += Strike(child);
            std::fclose(file);
        }
    }
    return struck;
}

/// Until the program ends, every millisecond.
void Storm(pid_t program) {
    const sched_param first{1};
    sched_setscheduler(0, SCHED_FIFO, &first); // or the tests crowd it out, where that is allowed
    timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    long ticks = 0, struck = 0, late = 0;
    for (siginfo_t end{};
         waitid(P_PID, static_cast<id_t>(program), &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         end.si_pid == 0;
         ++ticks) {
        struck += Strike(program);
        next.tv_nsec += 1000000;
        if (next.tv_nsec >= 1000000000)
            ++next.tv_sec, next.tv_nsec -= 1000000000;
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        if (now.tv_sec > next.tv_sec || (now.tv_sec == next.tv_sec && now.tv_nsec > next.tv_nsec))
            ++late, next = now;
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    }
    std::printf("storm: %ld interruptions in %ld ticks, %ld of them late\n", struck, ticks, late);
}

} // namespace

int main(int count, char** words) {
    if (count < 3) {
        std::fprintf(stderr, "usage: launcher CONDITION PROGRAM [ARGUMENT...]\n");
        return 125;
    }
    const std::string_view condition = words[1];
    char report[] = "/tmp/plinth-report-XXXXXX";
    if (condition == "closed")
        close(mkstemp(report));
    const pid_t program = fork();
    if (program == 0) {
        Prepare(condition, report);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execv(words[2], words + 2);
        Die(words[2]);
    }
    if (condition == "storm")
        Storm(program);
    int status = 0;
    while (waitpid(program, &status, 0) != program)
        continue;
    if (condition == "closed") {
        if (std::FILE* const file = std::fopen(report, "re"))
            for (int byte; (byte = std::fgetc(file)) != EOF;)
                std::putchar(byte);
        unlink(report);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
