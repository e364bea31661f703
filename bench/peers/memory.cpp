// SPDX-License-Identifier: MIT
#include <rwstream.h>
#include <zelprof.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/MemoryStream.h>
#include <Poco/Stopwatch.h>
#include <boost/timer/timer.hpp>
#include <glib.h>

#include "contest.h"

namespace {

/// What goes through a stream, and in pieces of which size.
struct Load {
    const char* name;
    std::size_t piece;
    std::size_t total;
};

constexpr Load Loads[] = {
    {"pieces of 4 KiB", 4096, 4 << 20},
    {"pieces of 64 bytes", 64, 4 << 20},
};

std::string Piece(std::size_t size) {
    std::string piece(size, 'x');
    piece.back() = '\n';
    return piece;
}

struct Ours {
    memStream stream;
    dsXArray<char> line{nullptr};
    explicit Ours(std::size_t) {}
    void Write(const char* data, std::size_t size) {
        if (stream.Write(const_cast<char*>(data), static_cast<int>(size)) != errOK)
            std::abort();
    }
    void Rewind() { stream.Seek(0, 0); }
    std::size_t Read(char* data, std::size_t size) {
        int count = 0;
        stream.Read(data, static_cast<int>(size), count);
        return static_cast<std::size_t>(count);
    }
    std::size_t ReadLine() {
        stream.ReadLn(line, '\n');
        return line.GetSize() - 1;
    }
};

template <typename Stream>
std::size_t ReadFrom(Stream& stream, char* data, std::size_t size) {
    stream.read(data, static_cast<std::streamsize>(size));
    return static_cast<std::size_t>(stream.gcount());
}

struct Standard {
    std::stringstream stream;
    std::string line;
    explicit Standard(std::size_t) {}
    void Write(const char* data, std::size_t size) {
        stream.write(data, static_cast<std::streamsize>(size));
    }
    void Rewind() { stream.seekg(0); }
    std::size_t Read(char* data, std::size_t size) { return ReadFrom(stream, data, size); }
    std::size_t ReadLine() {
        std::getline(stream, line);
        return line.size();
    }
};

/// Its streams are about memory of the caller's, which must be large enough, and go one way.
struct PocoStream {
    std::unique_ptr<char[]> memory;
    Poco::MemoryOutputStream out;
    Poco::MemoryInputStream in;
    std::string line;
    explicit PocoStream(std::size_t total)
        : memory(std::make_unique_for_overwrite<char[]>(total)),
          out(memory.get(), static_cast<std::streamsize>(total)),
          in(memory.get(), static_cast<std::streamsize>(total)) {}
    void Write(const char* data, std::size_t size) {
        out.write(data, static_cast<std::streamsize>(size));
    }
    void Rewind() { in.seekg(0, std::ios::beg); }
    std::size_t Read(char* data, std::size_t size) { return ReadFrom(in, data, size); }
    std::size_t ReadLine() {
        std::getline(in, line);
        return line.size();
    }
};

struct Memory {
    std::unique_ptr<char[]> memory;
    char* at;
    const char* end;
    std::string line;
    explicit Memory(std::size_t total)
        : memory(std::make_unique_for_overwrite<char[]>(total)), at(memory.get()), end(at + total) {
    }
    void Write(const char* data, std::size_t size) {
        std::memcpy(at, data, size);
        at += size;
    }
    void Rewind() { at = memory.get(); }
    std::size_t Read(char* data, std::size_t size) {
        std::memcpy(data, at, size);
        at += size;
        return size;
    }
    std::size_t ReadLine() {
        char* const found =
            static_cast<char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)));
        line.assign(at, found);
        at = found + 1;
        return line.size();
    }
};

template <typename Stream>
void Fill(Stream& stream, const Load& load, const std::string& piece) {
    for (std::size_t done = 0; done < load.total; done += load.piece)
        stream.Write(piece.data(), piece.size());
}

template <typename Stream>
void EnterStream(const char* contender) {
    for (const Load& load : Loads) {
        contest::Contend({std::string("write, ") + load.name}, contender,
                         [&load](benchmark::State& state) {
                             const std::string piece = Piece(load.piece);
                             for (auto _ : state) {
                                 Stream stream(load.total);
                                 Fill(stream, load, piece);
                                 benchmark::ClobberMemory();
                             }
                         });
        contest::Contend({std::string("read, ") + load.name}, contender,
                         [&load](benchmark::State& state) {
                             const std::string expected = Piece(load.piece);
                             std::string piece = expected;
                             Stream stream(load.total);
                             Fill(stream, load, piece);
                             for (auto _ : state) {
                                 stream.Rewind();
                                 for (std::size_t done = 0; done < load.total; done += load.piece)
                                     if (stream.Read(piece.data(), load.piece) != load.piece)
                                         state.SkipWithError("too little was read");
                             }
                             if (piece != expected)
                                 state.SkipWithError("something else was read");
                         });
    }
    const Load& load = Loads[1];
    contest::Contend({"read, lines of 64 bytes"}, contender, [&load](benchmark::State& state) {
        Stream stream(load.total);
        Fill(stream, load, Piece(load.piece));
        for (auto _ : state) {
            stream.Rewind();
            for (std::size_t done = 0; done < load.total; done += load.piece)
                if (stream.ReadLine() != load.piece - 1)
                    state.SkipWithError("the line has another length");
        }
    });
}

struct BoostPoint {
    boost::timer::cpu_timer timer;
    double Elapsed() const { return static_cast<double>(timer.elapsed().wall) / 1e9; }
};

struct PocoPoint {
    Poco::Stopwatch watch;
    PocoPoint() { watch.start(); }
    double Elapsed() const { return static_cast<double>(watch.elapsed()) / 1e6; }
};

struct GlibPoint {
    std::unique_ptr<GTimer, decltype(&g_timer_destroy)> timer{g_timer_new(), g_timer_destroy};
    double Elapsed() const { return g_timer_elapsed(timer.get(), nullptr); }
};

struct TwoLooks {
    timespec start = Now();
    static timespec Now() {
        timespec now;
        ::clock_gettime(CLOCK_REALTIME, &now);
        return now;
    }
    double Elapsed() const {
        const timespec end = Now();
        return static_cast<double>(end.tv_sec - start.tv_sec) +
               static_cast<double>(end.tv_nsec - start.tv_nsec) / 1e9;
    }
};

/// The others measure; adding up is left to their users.
template <typename Point>
void EnterPoint(const char* contender) {
    contest::Contend({"profiler point"}, contender, [](benchmark::State& state) {
        double seconds = 0;
        unsigned int calls = 0;
        for (auto _ : state) {
            const Point point;
            benchmark::ClobberMemory();
            benchmark::DoNotOptimize(seconds += point.Elapsed());
            benchmark::DoNotOptimize(++calls);
        }
    });
}

void EnterPoints() {
    contest::Contend({"profiler point"}, contest::Plinth, [](benchmark::State& state) {
        static ProfileEntry entry("all rounds of the profiler point");
        for (auto _ : state) {
            const ProfilePoint point(&entry);
            benchmark::ClobberMemory();
        }
    });
    EnterPoint<BoostPoint>("boost::timer::cpu_timer");
    EnterPoint<PocoPoint>("POCO Stopwatch");
    EnterPoint<GlibPoint>("GTimer");
    EnterPoint<TwoLooks>(contest::PlainCode);
}

} // namespace

void Contestants() {
    EnterStream<Ours>(contest::Plinth);
    EnterStream<Standard>("std::stringstream");
    EnterStream<PocoStream>("POCO MemoryStream");
    EnterStream<Memory>(contest::PlainCode);
    EnterPoints();
}
