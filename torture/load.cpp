// SPDX-License-Identifier: MIT
//
// load SECONDS RATE LINES_SERVER FILE_SERVER: servers under RATE connections a second for SECONDS,
// good ones among slow, silent, lying and vanishing ones. Every good client must be served right
// and in time, and afterwards the server must have no thread, descriptor or memory more than
// before.
//
// "load serve" is one of the servers: it hands each connection to a thread of its own. The other
// two, examples of the tree, have one client at a time, so nobody may be silent for long there.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <outside/varnholt/service.h>
#include <outside/varnholt/threads.h>
#include <outside/win32/handles.h>
#include <psock.h>
#include <psockmsg.h>

#include "examples/children.h"
#include "examples/fileserv/protocol.h"
#include "examples/lines/record.h"
#include "tests/support.h"

namespace {

using Clock = std::chrono::steady_clock;

// --- the server --------------------------------------------------------------------------------

/// Gives each message back, or as many bytes as one that begins with `#` asks for.
int Converse(void* stream) {
    const std::unique_ptr<psockStream> client(static_cast<psockStream*>(stream));
    dsXArray<char> message(nullptr);
    while (Read(*client, message) == errOK) {
        const std::string text(message.GetDataPtr(), message.GetSize());
        if (!text.empty() && text[0] == '#')
            message.Resize(static_cast<unsigned int>(std::atoi(text.c_str() + 1)));
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

// --- what is said to a server, and what it must answer -----------------------------------------

struct Exchange {
    std::string request, answer; // the payloads of two messages
};

std::string Payload(dsXArray<char>& message) {
    return {message.GetDataPtr(), message.GetSize()};
}

std::string Framed(const std::string& payload) {
    const auto size = static_cast<std::uint32_t>(payload.size());
    std::string bytes;
    for (unsigned shift = 32; shift != 0; shift -= 8)
        bytes += static_cast<char>(size >> (shift - 8));
    return bytes + payload;
}

std::string Letters(std::mt19937& random, std::size_t size) {
    std::string text(size, 'x');
    for (char& letter : text)
        letter = static_cast<char>('a' + random() % 26);
    return text;
}

Exchange Echo(std::mt19937& random) {
    const std::string text =
        Letters(random, random() % 8 == 0 ? random() % 300000 : random() % 3000);
    return {text, text};
}

Exchange Line(std::mt19937& random) {
    const std::string text = Letters(random, random() % 200);
    Request request;
    Answer answer;
    request.number = answer.number = static_cast<int>(random() % 100000);
    request.length = static_cast<int>(text.size());
    request.text = text.c_str();
    Describe(text.c_str(), answer);
    dsXArray<char> message(nullptr);
    Exchange exchange;
    Encode(request, message);
    exchange.request = Payload(message);
    Encode(answer, message);
    exchange.answer = Payload(message);
    return exchange;
}

constexpr char servedText[] = "what the file holds\n";

/// Asks for the checksum of the one file that is there, or for one that is not.
Exchange File(std::mt19937& random) {
    fileserv::Request request;
    request.operation = fileserv::Checksum;
    const bool there = random() % 2 == 0;
    request.path = there ? "folder|file" : "folder|" + Letters(random, 20);
    dsXArray<char> message(nullptr);
    Exchange exchange;
    fileserv::EncodeRequest(request, message);
    exchange.request = Payload(message);
    {
        Encoder answer(message);
        answer.out << static_cast<int>(there ? errOK : errNotFound);
        if (there) {
            unsigned int sum = 0, parity = 0, count = 0;
            for (const char* at = servedText; *at != '\0'; ++at, ++count) {
                sum += static_cast<unsigned char>(*at);
                parity ^= static_cast<unsigned char>(*at);
            }
            fileserv::PutLong(answer.out, count) << (count << 16 | (sum & 0xFF) << 8 | parity);
        }
    }
    exchange.answer = Payload(message);
    return exchange;
}

using Dialect = std::function<Exchange(std::mt19937&)>;

// --- the clients -------------------------------------------------------------------------------

/// A plain socket to the server.
class Plain {
public:
    explicit Plain(int port) : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval patience{60, 0};
        setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        connected = connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    Plain(const Plain&) = delete;
    Plain& operator=(const Plain&) = delete;
    ~Plain() { close(socket); }

    bool Send(const std::string& bytes) const {
        return connected && send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
                                static_cast<ssize_t>(bytes.size());
    }
    std::string Receive(std::size_t count) const {
        std::string bytes(count, '\0');
        std::size_t got = 0;
        for (ssize_t part = 1; part > 0 && got < count; got += static_cast<std::size_t>(part))
            part = std::max<ssize_t>(0, recv(socket, bytes.data() + got, count - got, 0));
        bytes.resize(got);
        return bytes;
    }
    /// Goes without a word: the other side gets a reset.
    void Vanish() const {
        const linger now{1, 0};
        setsockopt(socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    }

private:
    const int socket;
    bool connected;
};

enum Kind { Good, Slow, Mute, HalfAndReset, HalfAndEnd, Lie, Flood, kinds };
constexpr const char* kindNames[] = {"good", "slow", "mute", "reset", "half", "lying", "deaf"};

void Pause(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

/// Some exchanges by the library's own client side. Empty if all is well, or what is not.
std::string BeGood(int port, const Dialect& dialect, std::mt19937& random) {
    const std::unique_ptr<psockStream> server(psockServer::Connect("localhost", port));
    if (!server)
        return "no connection: " + std::string(errName(errMapError()));
    const timeval patience{60, 0};
    setsockopt(static_cast<int>(server->getSock()), SOL_SOCKET, SO_RCVTIMEO, &patience,
               sizeof patience);
    for (int i = 0; i < 3; ++i) {
        const Exchange exchange = dialect(random);
        dsXArray<char> message(nullptr);
        message.Append(static_cast<unsigned int>(exchange.request.size()), exchange.request.data());
        errstatus status = Write(*server, message);
        message.Clear();
        if (status == errOK)
            status = Read(*server, message);
        if (status != errOK)
            return "no answer: " + std::string(errName(status));
        if (Payload(message) != exchange.answer)
            return "a wrong answer";
    }
    return "";
}

/// A byte every 10 milliseconds, and right all the same.
std::string BeSlow(int port, const Dialect& dialect, std::mt19937& random) {
    const Plain client(port);
    Exchange exchange = dialect(random);
    while (exchange.request.size() > 60)
        exchange = dialect(random);
    for (const char byte : Framed(exchange.request)) {
        if (!client.Send(std::string(1, byte)))
            return "a slow one was cut off";
        Pause(10);
    }
    const std::string answer = Framed(exchange.answer);
    return client.Receive(answer.size()) == answer ? "" : "a wrong answer to a slow one";
}

std::string Be(Kind kind, int port, const Dialect& dialect, std::mt19937& random) {
    if (kind == Good)
        return BeGood(port, dialect, random);
    if (kind == Slow)
        return BeSlow(port, dialect, random);
    const Plain client(port);
    const std::string whole = Framed(dialect(random).request);
    const std::string half = whole.substr(0, random() % whole.size());
    switch (kind) {
    case Mute:
        Pause(3000);
        if (random() % 2 == 0)
            client.Vanish();
        break;
    case HalfAndReset:
        client.Send(random() % 2 == 0 ? half : whole + half);
        client.Vanish();
        break;
    case HalfAndEnd:
        client.Send(half);
        break;
    case Lie: {
        const char* const prefixes[] = {"\x7f\xff\xff\xff", "\x40", "\xff\xff\xff\xff",
                                        "\x80\x01\x02\x03"};
        client.Send(prefixes[random() % 4] + half);
        if (random() % 2 == 0)
            client.Vanish();
        break;
    }
    default: // asks for much, and takes nothing of it
        client.Send(Framed("#3000000"));
        client.Send(Framed("#3000000"));
        Pause(500);
        client.Vanish();
    }
    return "";
}

// --- the load ----------------------------------------------------------------------------------

struct Outcome {
    std::mutex lock;
    std::vector<double> times; ///< seconds that each good client took
    std::vector<std::string> faults;
    unsigned int counts[kinds] = {};
};

/// What a process has.
struct Picture {
    long descriptors = 0, threads = 0, kilobytes = 0, most = 0;

    explicit Picture(unsigned long id) {
        using Walk = std::filesystem::directory_iterator;
        const std::string folder = "/proc/" + std::to_string(id);
        descriptors = std::distance(Walk(folder + "/fd"), Walk());
        threads = std::distance(Walk(folder + "/task"), Walk());
        std::ifstream status(folder + "/status");
        for (std::string word; status >> word;) {
            if (word == "VmRSS:")
                status >> kilobytes;
            if (word == "VmHWM:")
                status >> most;
        }
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
    std::vector<std::thread> clients;
    const Clock::time_point start = Clock::now();
    const int all = static_cast<int>(seconds * rate);
    for (int i = 0; i < all; ++i) {
        std::this_thread::sleep_until(start + std::chrono::microseconds(1000000LL * i / rate));
        const auto kind = static_cast<Kind>(
            std::find_if(kindNames, kindNames + kinds,
                         [&](const char* name) {
                             return name[0] == mix[static_cast<std::size_t>(i) % mix.size()];
                         }) -
            kindNames);
        ++outcome.counts[kind];
        clients.emplace_back([&, i, kind] {
            std::mt19937 random(static_cast<unsigned int>(i));
            const Clock::time_point began = Clock::now();
            const std::string fault = Be(kind, port, dialect, random);
            const std::chrono::duration<double> took = Clock::now() - began;
            const std::lock_guard<std::mutex> guard(outcome.lock);
            if (kind == Good)
                outcome.times.push_back(took.count());
            if (!fault.empty())
                outcome.faults.push_back(fault);
        });
    }
    for (std::thread& client : clients)
        client.join();
}

bool Report(const char* name, Outcome& outcome, double bound) {
    std::sort(outcome.times.begin(), outcome.times.end());
    const auto part = [&](double share) {
        return outcome.times[static_cast<std::size_t>(
                   share * static_cast<double>(outcome.times.size() - 1))] *
               1000;
    };
    std::string counts;
    for (int kind = 0; kind < kinds; ++kind)
        if (outcome.counts[kind] != 0)
            counts += ", " + std::to_string(outcome.counts[kind]) + ' ' + kindNames[kind];
    std::printf("    %s: good ones in %.1f ms (half), %.1f ms (99 of 100), %.0f ms (all)%s\n", name,
                part(0.5), part(0.99), part(1), counts.c_str());
    for (std::size_t i = 0; i < outcome.faults.size() && i < 10; ++i)
        std::printf("%s: %s\n", name, outcome.faults[i].c_str());
    const bool inTime = outcome.times.back() < bound;
    if (!inTime)
        std::printf("%s: a good client had to wait longer than %.0f s\n", name, bound);
    return inTime && outcome.faults.empty();
}

/// One server under its load.
bool Try(const char* name, const std::vector<std::string>& command, const Dialect& dialect,
         const std::string& mix, double seconds, int rate, double bound, bool bounded = true) {
    TalkingChild server(command);
    std::string line;
    while (line.find("listening") == line.npos) // there may be one about the backlog before it
        if (server.status != errOK || !std::getline(*server.says, line)) {
            std::printf("%s: does not start\n", name);
            return false;
        }
    const int port = PortIn(line);
    std::mt19937 random(1);
    for (int i = 0; i < 50; ++i)
        if (const std::string fault = BeGood(port, dialect, random); !fault.empty())
            std::printf("%s: %s before the load\n", name, fault.c_str());
    const unsigned long id = LastChild();
    Pause(200);
    const Picture before(id);
    Outcome outcome;
    Press(port, dialect, mix, seconds, rate, outcome);
    if (!bounded) // where descriptors have run out nobody is promised anything
        outcome.faults.erase(std::remove_if(outcome.faults.begin(), outcome.faults.end(),
                                            [](const std::string& fault) {
                                                return fault.find("wrong") == fault.npos;
                                            }),
                             outcome.faults.end());
    bool good = Report(name, outcome, bound);

    // Alive and well, and as it was.
    for (int i = 0; i < 5; ++i)
        if (const std::string fault = BeGood(port, dialect, random); !fault.empty()) {
            std::printf("%s: %s after the load\n", name, fault.c_str());
            good = false;
        }
    Picture after(id);
    for (int i = 0;
         i < 100 && (after.descriptors > before.descriptors || after.threads > before.threads);
         ++i) {
        Pause(100);
        after = Picture(id);
    }
    constexpr long slack = 32L << 10; // what the allocator keeps of many threads
    std::printf("%s: before and after: descriptors %ld %ld, threads %ld %ld, resident %ld %ld kB, "
                "%ld kB at the most\n",
                name, before.descriptors, after.descriptors, before.threads, after.threads,
                before.kilobytes, after.kilobytes, after.most);
    good = good && after.descriptors == before.descriptors && after.threads == before.threads &&
           after.kilobytes <= before.kilobytes + slack && after.most < before.kilobytes + 2 * slack;
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
    LimitDescriptors(0);
    const double seconds = std::atof(argv[1]);
    const int rate = std::atoi(argv[2]);
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    const support::TempFolder temp;
    std::filesystem::create_directory(temp.path / "folder");
    std::ofstream(temp.path / "folder" / "file") << servedText;

    bool good = Try("threads", {self, "serve"}, Echo, "gsgrghglgmgsgrghglgd", seconds, rate, 10);
    good = Try("40 descriptors", {self, "serve", "40"}, Echo, "gsgrghglgmgsgrghglgd", seconds / 6,
               rate, 120, false) &&
           good;
    good = Try("lines", {argv[3]}, Line, "ggrghgl", seconds / 3, rate, 10) && good;
    // A client that says nothing is sent away after two seconds. Those that come meanwhile wait.
    std::string mix;
    for (int i = 0; i < 200; ++i)
        mix += "ggrghgl";
    mix[700] = 'm';
    setenv("QVZ_FSERV_BACKLOG", "2000", 1);
    good = Try("files", {argv[4], temp.path, "0", "2"}, File, mix, seconds / 3, rate, 30) && good;
    std::printf("%s\n",
                good ? "every good client was served right, and nothing was left" : "FAILED");
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
