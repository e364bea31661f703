// SPDX-License-Identifier: MIT
//
// load SECONDS RATE LINES_SERVER FILE_SERVER: servers under RATE connections a second for SECONDS,
// good ones among slow, silent, lying and vanishing ones. Every good client must be served right,
// nobody may hold up all others, and afterwards the server must have no thread, descriptor or
// memory more than before. How long clients wait is told and not judged: that is the host's affair.
//
// "load serve" is one of the servers: it hands each connection to a thread of its own. The other
// two, examples of the tree, have one client at a time, so nobody may be silent for long there.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <outside/varnholt/service.h>
#include <outside/varnholt/threads.h>
#include <outside/win32/handles.h>
#include <psock.h>
#include <psockmsg.h>

#include "examples/children.h"
#include "tests/support.h"
#include "torture/clients.h"

namespace {

using namespace clients;

using Clock = std::chrono::steady_clock;

// --- the server --------------------------------------------------------------------------------

/// Gives each message back, or as many bytes as one that begins with `#` asks for, or for `?` the
/// bytes that the process has from the heap.
int Converse(void* stream) {
    const std::unique_ptr<psockStream> client(static_cast<psockStream*>(stream));
    dsXArray<char> message(nullptr);
    while (Read(*client, message) == errOK) {
        const std::string text(message.GetDataPtr(), message.GetSize());
        if (!text.empty() && text[0] == '#')
            message.Resize(static_cast<unsigned int>(std::atoi(text.c_str() + 1)));
        if (text == "?") {
            const struct mallinfo2 heap = mallinfo2();
            const std::string bytes = std::to_string(heap.uordblks + heap.hblkhd);
            message.Clear();
            message.Append(static_cast<unsigned int>(bytes.size()), bytes.data());
        }
        if (Write(*client, message) != errOK)
            break;
        message.Clear();
    }
    return 0;
}

class Server : public psockService {
public:
    using psockService::psockService;
    bool Execute(psockStream* stream) override {
        if (stream == nullptr)
            return false;
        void* const thread = StrictThread_Launch(Converse, stream, nullptr);
        if (thread == zelHandleOfDescriptor(-1))
            delete stream;
        else
            StrictThread_Free(thread); // it runs on
        return false;
    }
};

int Serve() {
    zelService service;
    service.StopOnSignal(SIGINT);
    Server server(service, 100);
    if (!server.Initialize(SystemAssigned))
        return EXIT_FAILURE;
    std::cout << "listening on port " << server.GetPort() << std::endl;
    server.Run();
    return EXIT_SUCCESS;
}

// --- the load ----------------------------------------------------------------------------------

struct Outcome {
    std::mutex lock;
    std::vector<double> times;           ///< seconds that each good client took
    std::vector<Clock::time_point> ends; ///< when each was through
    std::vector<std::string> faults;
    unsigned int counts[kinds] = {};
    Clock::time_point start, end; ///< of the load
};

/// What a process has.
struct Picture {
    long descriptors, threads, kilobytes, most;

    explicit Picture(unsigned long id) {
        using Walk = std::filesystem::directory_iterator;
        const std::string folder = "/proc/" + std::to_string(id);
        descriptors = std::distance(Walk(folder + "/fd"), Walk());
        threads = std::distance(Walk(folder + "/task"), Walk());
        kilobytes = Kilobytes(folder + "/smaps_rollup", "Rss:"); // exact, unlike that of status
        most = Kilobytes(folder + "/status", "VmHWM:");
    }

    /// That of a process once it has no more descriptors and threads than in `other`, or of one
    /// that keeps them for ten seconds.
    static Picture Settled(unsigned long id, const Picture& other) {
        for (int i = 0;; ++i) {
            const Picture now(id);
            if (i == 100 || (now.descriptors <= other.descriptors && now.threads <= other.threads))
                return now;
            Pause(100);
        }
    }

private:
    static long Kilobytes(const std::string& path, const char* key) {
        std::ifstream file(path);
        long value = -1;
        for (std::string word; file >> word && word != key;)
            continue;
        file >> value;
        return value;
    }
};

/// The last child that this thread has started: the library does not tell its number.
unsigned long LastChild() {
    std::ifstream children("/proc/self/task/" + std::to_string(gettid()) + "/children");
    unsigned long id = 0, last = 0;
    while (children >> id)
        last = id;
    return last;
}

/// `mix` has one letter for each client in turn; the letters are those of `kindNames`.
void Press(int port, const Dialect& dialect, const std::string& mix, double seconds, int rate,
           Outcome& outcome) {
    // Where the host is too slow for the rate, the rate is what gives way, and not the time that
    // clients wait for each other.
    constexpr int mostAtOnce = 500;
    const int all = static_cast<int>(seconds * rate);
    std::atomic<int> next{0};
    std::vector<std::thread> clients;
    outcome.start = Clock::now();
    for (int i = 0; i < mostAtOnce; ++i)
        clients.emplace_back([&] {
            for (int turn; (turn = next++) < all;) {
                std::this_thread::sleep_until(outcome.start +
                                              std::chrono::microseconds(1000000LL * turn / rate));
                const char letter = mix[static_cast<std::size_t>(turn) % mix.size()];
                const auto kind = static_cast<Kind>(
                    std::find_if(kindNames, kindNames + kinds,
                                 [&](const char* name) { return name[0] == letter; }) -
                    kindNames);
                std::mt19937 random(static_cast<unsigned int>(turn));
                const Clock::time_point began = Clock::now();
                const std::string fault = Be(kind, port, dialect, random);
                const std::lock_guard<std::mutex> guard(outcome.lock);
                ++outcome.counts[kind];
                outcome.end = std::max(outcome.end, began);
                if (kind == Good) {
                    outcome.ends.push_back(Clock::now());
                    outcome.times.push_back(
                        std::chrono::duration<double>(outcome.ends.back() - began).count());
                }
                if (!fault.empty())
                    outcome.faults.push_back(fault);
            }
        });
    for (std::thread& client : clients)
        client.join();
}

/// The longest time, in seconds, in which no good client was through.
double LongestPause(const Outcome& outcome) {
    double longest = 0;
    Clock::time_point before = outcome.start;
    for (const Clock::time_point end : outcome.ends) {
        longest = std::max(longest, std::chrono::duration<double>(end - before).count());
        before = end;
    }
    return longest;
}

/// How long a client has to wait tells of the host as much as of the server. That nobody at all
/// gets any further for this long is the server's fault: it is held up by one.
constexpr double longestPause = 10;

bool Report(const char* name, Outcome& outcome) {
    std::sort(outcome.times.begin(), outcome.times.end());
    const auto part = [&](double share) {
        return outcome.times[static_cast<std::size_t>(
                   share * static_cast<double>(outcome.times.size() - 1))] *
               1000;
    };
    std::string counts;
    unsigned int all = 0;
    for (int kind = 0; kind < kinds; ++kind) {
        all += outcome.counts[kind];
        if (outcome.counts[kind] != 0)
            counts += ", " + std::to_string(outcome.counts[kind]) + ' ' + kindNames[kind];
    }
    const double pause = LongestPause(outcome);
    std::printf("    %s: %.0f connections a second, good ones in %.1f ms (half), %.1f ms (99 of "
                "100), %.0f ms (all), none for %.0f ms%s\n",
                name, all / std::chrono::duration<double>(outcome.end - outcome.start).count(),
                part(0.5), part(0.99), part(1), pause * 1000, counts.c_str());
    for (std::size_t i = 0; i < outcome.faults.size() && i < 10; ++i)
        std::printf("%s: %s\n", name, outcome.faults[i].c_str());
    if (pause > longestPause)
        std::printf("%s: no good client was through for too long\n", name);
    return pause <= longestPause && outcome.faults.empty();
}

/// What our own server has from the heap while it serves nobody else.
long HeapBytes(int port) {
    const std::unique_ptr<psockStream> server(psockServer::Connect("localhost", port));
    dsXArray<char> message(nullptr);
    message.Append(1, "?");
    if (!server || Write(*server, message) != errOK)
        return -1;
    message.Clear();
    return Read(*server, message) == errOK ? std::atol(Payload(message).c_str()) : -1;
}

/// One server under its load.
bool Try(const char* name, const std::vector<std::string>& command, const Dialect& dialect,
         const std::string& mix, double seconds, int rate, bool bounded = true) {
    TalkingChild server(command);
    std::string line;
    while (line.find("listening") == line.npos) // there may be one about the backlog before it
        if (server.status != errOK || !std::getline(*server.says, line)) {
            std::printf("%s: does not start\n", name);
            return false;
        }
    const int port = PortIn(line);
    const unsigned long id = LastChild();
    const Picture fresh(id);
    Outcome warmingUp, outcome;
    Press(port, dialect, mix, seconds / 20, rate, warmingUp);
    const Picture before = Picture::Settled(id, fresh);
    const bool isOurs = command.size() > 1 && command[1] == "serve";
    const long heapBefore = isOurs ? HeapBytes(port) : 0;
    Press(port, dialect, mix, seconds, rate, outcome);
    if (!bounded) // where descriptors have run out nobody is promised anything
        outcome.faults.erase(std::remove_if(outcome.faults.begin(), outcome.faults.end(),
                                            [](const std::string& fault) {
                                                return fault.find("wrong") == fault.npos;
                                            }),
                             outcome.faults.end());
    bool good = Report(name, outcome);

    // Alive and well, and as it was.
    std::mt19937 random(1);
    for (int i = 0; i < 5; ++i)
        if (const std::string fault = BeGood(port, dialect, random); !fault.empty()) {
            std::printf("%s: %s after the load\n", name, fault.c_str());
            good = false;
        }
    const Picture after = Picture::Settled(id, before);
    const long heapAfter = isOurs ? HeapBytes(port) : 0;
    // With threads: stacks that the C library keeps for the next ones with what it notes of them,
    // and holes in the heap, the more the more clients are there at once.
    constexpr long heapSlack = 8192;
    const long slack = isOurs ? 8192 : 256;
    // At the most: no length is believed before its bytes are there.
    constexpr long room = 64L << 10;
    std::printf("    %s: before and after: descriptors %ld %ld, threads %ld %ld, resident %ld %ld "
                "kB, %ld kB at the most",
                name, before.descriptors, after.descriptors, before.threads, after.threads,
                before.kilobytes, after.kilobytes, after.most);
    if (isOurs)
        std::printf(", heap %ld %ld bytes", heapBefore, heapAfter);
    std::printf("\n");
    good = good && after.descriptors == before.descriptors && after.threads == before.threads &&
           heapBefore >= 0 && heapAfter >= 0 && heapAfter < heapBefore + heapSlack &&
           after.kilobytes <= before.kilobytes + slack && after.most < before.kilobytes + room;
    server.process.Interrupt();
    if (server.process.WaitForProcess() != 0) {
        std::printf("%s: did not end well\n", name);
        good = false;
    }
    if (!good)
        std::printf("%s: FAILED\n", name);
    return good;
}

void LimitDescriptors(rlim_t most) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = most != 0 ? most : limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "C.UTF-8");
    if (argc > 1 && std::string(argv[1]) == "serve") {
        if (argc > 2)
            LimitDescriptors(static_cast<rlim_t>(std::atoi(argv[2])));
        return Serve();
    }
    if (argc < 5) {
        std::fprintf(stderr, "usage: load SECONDS RATE LINES_SERVER FILE_SERVER\n");
        return 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    // Whoever has to wait is not sent away: the system tries again only after seconds.
    setenv("QVZ_FSERV_BACKLOG", "2000", 1);
    // What is resident in a server shall be what it holds: with several arenas, and
    // thresholds that move, the C library keeps megabytes of what was given back.
    setenv("MALLOC_ARENA_MAX", "1", 1);
    setenv("MALLOC_MMAP_THRESHOLD_", "65536", 1);
    setenv("MALLOC_TRIM_THRESHOLD_", "65536", 1);
    LimitDescriptors(0);
    const double seconds = std::atof(argv[1]);
    const int rate = std::atoi(argv[2]);
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    const support::TempFolder temp;
    std::filesystem::create_directory(temp.path / "folder");
    std::ofstream(temp.path / "folder" / "file") << servedText;

    bool good = Try("threads", {self, "serve"}, Echo, "gsgrghglgmgsgrghglgd", seconds, rate);
    good = Try("40 descriptors", {self, "serve", "40"}, Echo, "gsgrghglgmgsgrghglgd", seconds / 6,
               rate, false) &&
           good;
    good = Try("lines", {argv[3]}, Line, "ggrghgl", seconds / 3, rate) && good;
    // A client that says nothing is sent away after two seconds. Those that come meanwhile wait.
    std::string mix;
    for (int i = 0; i < 200; ++i)
        mix += "ggrghgl";
    mix[700] = 'm';
    good = Try("files", {argv[4], temp.path, "0", "2"}, File, mix, seconds / 3, rate) && good;
    std::printf("%s\n",
                good ? "every good client was served right, and nothing was left" : "FAILED");
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
