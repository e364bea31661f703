// SPDX-License-Identifier: MIT
//
// Does a few things very often, and looks at what the process holds before and after: descriptors,
// threads, mappings, resident memory and zombies. Each row is a process of its own (the lock, four)
// that warms up with a twentieth of its work before the first look.
//
// PLINTH_SOAK_DIVISOR in the environment divides the numbers, for a quick try.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <asynccall.h>
#include <execproc.h>
#include <pfufs.h>
#include <pfulock.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/echoserver.h"

namespace {

namespace fs = std::filesystem;

void Require(bool holds, int line = __builtin_LINE()) {
    if (!holds) {
        std::fprintf(stderr, "soak: it fails in line %d\n", line);
        _exit(1);
    }
}

/// Pages that the C library touches late; 100,000 leaks of 16 bytes are six times as much.
constexpr long residentSlack = 256;
/// The C library keeps the stacks of a few ended threads, two mappings each, and makes an arena of
/// the heap for threads that meet in it: how many, chance decides.
constexpr long mappingSlack = 16;

/// What a process holds.
struct Picture {
    long descriptors = 0, threads = 0, mappings = 0, resident = 0 /* KiB */, zombies = 0;

    static Picture Take() {
        Picture now;
        now.descriptors = std::distance(fs::directory_iterator("/proc/self/fd"), {}) - 1;
        now.threads = std::distance(fs::directory_iterator("/proc/self/task"), {});
        std::ifstream maps("/proc/self/maps");
        now.mappings = std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
        // The rolled-up figure is exact; the quick ones lag behind.
        std::ifstream rollup("/proc/self/smaps_rollup");
        for (std::string word; rollup >> word && word != "Rss:";)
            continue;
        rollup >> now.resident;
        now.zombies = Zombies();
        return now;
    }
    void Add(const Picture& other) {
        descriptors += other.descriptors, threads += other.threads, mappings += other.mappings;
        resident += other.resident, zombies += other.zombies;
    }

    bool IsNoMoreThan(const Picture& before) const {
        return descriptors <= before.descriptors && threads <= before.threads &&
               mappings <= before.mappings + mappingSlack && zombies <= before.zombies &&
               resident <= before.resident + residentSlack;
    }

private:
    static long Zombies() {
        long found = 0;
        for (const auto& entry : fs::directory_iterator("/proc")) {
            std::string line;
            if (std::getline(std::ifstream(entry.path() / "stat"), line)) {
                char state = 0;
                int parent = 0;
                const std::size_t name = line.rfind(')');
                if (name != line.npos &&
                    std::sscanf(line.c_str() + name, ") %c %d", &state, &parent) == 2)
                    found += state == 'Z' && parent == getpid();
            }
        }
        return found;
    }
};

struct Outcome {
    Picture before, after;
};

/// Looks before and after `count` times `work`, which gets the number of its turn.
template <typename Work>
Outcome Watch(long count, Work work) {
    for (long i = 0; i < count / 20 + 8; ++i)
        work(i);
    Picture::Take(); // so that taking one changes nothing any more
    Outcome outcome;
    outcome.before = Picture::Take();
    for (long i = 0; i < count; ++i)
        work(i);
    // The other side of the last turn may take a moment.
    for (int i = 0; i < 1000; ++i) {
        outcome.after = Picture::Take();
        if (outcome.after.IsNoMoreThan(outcome.before))
            break;
        usleep(1000);
    }
    return outcome;
}

using Stream = std::unique_ptr<psockStream>;

/// A hundred there, a hundred back: 64 bytes each, and one of 64 KiB.
Outcome Messages(long count) {
    EchoServer server;
    const Stream client(psockServer::Connect("127.0.0.1", server.GetPort()));
    Require(client != nullptr);
    dsXArray<char> request(nullptr), answer(nullptr);
    return Watch(count / 100, [&](long turn) {
        const auto sizeOf = [turn](int i) { return i == 7 && turn % 50 == 0 ? 65536U : 64U; };
        for (int i = 0; i < 100; ++i) {
            request.Resize(sizeOf(i));
            std::fill_n(request.GetDataPtr(), request.GetSize(), static_cast<char>(i));
            Require(Write(*client, request) == errOK);
        }
        for (int i = 0; i < 100; ++i) {
            answer.Clear();
            Require(Read(*client, answer) == errOK && answer.GetSize() == sizeOf(i) &&
                    answer[answer.GetSize() - 1] == static_cast<char>(i));
        }
    });
}

Outcome Connections(long count) {
    EchoServer server;
    dsXArray<char> request(nullptr), answer(nullptr);
    request.Append(5, "hello");
    return Watch(count, [&](long) {
        const Stream client(psockServer::Connect("127.0.0.1", server.GetPort()));
        answer.Clear();
        Require(client != nullptr && Write(*client, request) == errOK &&
                Read(*client, answer) == errOK && answer.GetSize() == 5);
    });
}

/// In turn: one that is waited for, one on pipes, one that is killed, one whose record goes before
/// its end.
Outcome Children(long count) {
    return Watch(count, [](long turn) {
        if (turn % 4 == 1) {
            ExecProcess process("cat", 7);
            oPipeStream* in;
            iPipeStream *out, *err;
            Require(OpenPipeWithChildProc(&in, &out, &err, &process) == errOK);
            *in << "hello";
            DeletePipe(in);
            Require(std::string(std::istreambuf_iterator<char>(*out), {}) == "hello");
            Require(process.WaitForProcess() == 0);
            DeletePipe(out);
            DeletePipe(err);
            return;
        }
        ExecProcess process(turn % 4 == 2 ? "sleep 1000" : "true", 0);
        Require(process.Start());
        if (turn % 4 == 2)
            Require(process.Kill() && process.WaitForProcess() == 128 + 9);
        else if (turn % 4 == 0)
            Require(process.WaitForProcess() == 0);
        else
            std::unique_ptr<zelEvent>(process.GetExitEvent())->Wait(-1);
    });
}

int Double(void* number) {
    return 2 * *static_cast<int*>(number);
}

/// Four at a time, waited for in any order.
Outcome Calls(long count) {
    return Watch(count / 4, [](long turn) {
        int numbers[4];
        std::unique_ptr<ptkAsyncCallEvent> calls[4];
        zelEvent* events[4];
        for (int i = 0; i < 4; ++i) {
            numbers[i] = static_cast<int>(turn) + i;
            calls[i].reset(call_async_func(Double, &numbers[i]));
            Require(calls[i] != nullptr);
            events[i] = calls[i].get();
        }
        for (int ended = 0; ended < 4; ++ended) {
            const int which = zelEvent::WaitAny(events, 4, -1);
            Require(which >= 0 && calls[which]->GetReturnValue() == 2 * numbers[which]);
            events[which] = nullptr;
        }
    });
}

/// Four processes that take one lock in turn; what it guards is counted without any other care.
Outcome Locks(long count) {
    constexpr int processes = 4;
    auto* const guarded = static_cast<volatile long*>(
        mmap(nullptr, sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int results[2];
    Require(pipe(results) == 0);
    for (int i = 0; i < processes; ++i) {
        if (fork() != 0)
            continue;
        const std::unique_ptr<pfuFileLock> lock(pfuFileLock::Construct("lock"));
        const Outcome outcome = Watch(count / processes, [&](long) {
            Require(lock->Lock() == errOK);
            *guarded = *guarded + 1;
            Require(lock->Release() == errOK);
        });
        Require(write(results[1], &outcome, sizeof outcome) == sizeof outcome);
        _exit(0);
    }
    Outcome sum;
    for (int i = 0; i < processes; ++i) {
        Outcome one;
        int status = -1;
        Require(wait(&status) > 0 && status == 0);
        Require(read(results[0], &one, sizeof one) == sizeof one);
        sum.before.Add(one.before);
        sum.after.Add(one.after);
    }
    Require(*guarded == processes * (count / processes + count / processes / 20 + 8));
    return sum;
}

/// Ten folders and four files each.
Outcome Trees(long count) {
    std::ofstream("file") << "hello";
    return Watch(count, [](long) {
        for (const char* const path : {"tree/a/b/c", "tree/a/d/e", "tree/f/g/h", "tree/i"}) {
            Require(pfuFS::pfuMakeDirRec(path) == errOK);
            Require(pfuFS::pfuCopyFile("file", (path + std::string("/file")).c_str()) == errOK);
        }
        Require(pfuFS::pfuRemoveDirRec("tree") == errOK && !pfuFS::pfuIsDir("tree"));
    });
}

struct Row {
    const char* name;
    long count;
    Outcome (*work)(long count);
};

const Row rows[] = {
    {"messages there and back", 1000000, Messages},
    {"connections", 100000, Connections},
    {"children", 20000, Children},
    {"asynchronous calls", 100000, Calls},
    {"lock rounds, 4 processes", 100000, Locks},
    {"trees made and removed", 10000, Trees},
};

/// Whether nothing has grown.
bool Print(const Row& row, long count, const Outcome& outcome, double seconds) {
    const Picture &before = outcome.before, &after = outcome.after;
    const bool good = after.IsNoMoreThan(before);
    std::printf("    %-24s %8ld %6ld %6ld %4ld %4ld %6ld %6ld %7ld %7ld %4ld %4ld %7.1f s  %s\n",
                row.name, count, before.descriptors, after.descriptors, before.threads,
                after.threads, before.mappings, after.mappings, before.resident, after.resident,
                before.zombies, after.zombies, seconds, good ? "good" : "GROWN");
    std::fflush(stdout);
    return good;
}

/// False if the row fails.
bool Run(const Row& row, long count, Outcome& outcome) {
    int result[2];
    Require(pipe(result) == 0);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(result[0]);
        outcome = row.work(count);
        Require(write(result[1], &outcome, sizeof outcome) == sizeof outcome);
        _exit(0);
    }
    close(result[1]);
    const bool told = read(result[0], &outcome, sizeof outcome) == sizeof outcome;
    close(result[0]);
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0 && told;
}

} // namespace

int main() {
    const char* const given = std::getenv("PLINTH_SOAK_DIVISOR");
    const long divisor = given != nullptr ? std::max(1L, std::atol(given)) : 1;
    std::string folder = (fs::temp_directory_path() / "plinth-XXXXXX").string();
    fs::current_path(mkdtemp(folder.data()));
    std::printf("    %-24s %8s %13s %9s %13s %15s %9s\n", "before and after", "times",
                "descriptors", "threads", "mappings", "resident KiB", "zombies");
    bool good = true;
    for (const Row& row : rows) {
        const long count = row.count / divisor;
        Outcome outcome;
        const auto began = std::chrono::steady_clock::now();
        if (!Run(row, count, outcome)) {
            std::printf("    %s: failed\n", row.name);
            good = false;
            continue;
        }
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
        good = Print(row, count, outcome, took.count()) && good;
    }
    fs::current_path("/");
    fs::remove_all(folder);
    std::printf("    (allowed: %ld mappings and %ld KiB more, of the C library)\n", mappingSlack,
                residentSlack);
    std::printf("%zu rows, %s\n", std::size(rows), good ? "nothing has grown" : "not all good");
    return good ? 0 : 1;
}
