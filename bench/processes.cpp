// SPDX-License-Identifier: MIT
//
// Child processes beside the bare calls of the system: launch and wait, from a small process and
// from one that has touched 2 GiB; 256 MiB through cat; and one wait over many events,
// with the system calls that it takes.
#include "execproc.h"

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "bench/systemcalls.h"

namespace {

/// That much memory, touched, while it lives.
class Touched {
public:
    explicit Touched(std::size_t bytes) : size(bytes) {
        if (size == 0)
            return;
        block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        madvise(block, size, MADV_NOHUGEPAGE);
        std::fill_n(static_cast<char*>(block), size, 'x');
    }
    Touched(const Touched&) = delete;
    Touched& operator=(const Touched&) = delete;
    ~Touched() {
        if (size != 0)
            munmap(block, size);
    }

private:
    std::size_t size;
    void* block = nullptr;
};

std::size_t Gibibytes(const benchmark::State& state) {
    return static_cast<std::size_t>(state.range(0)) << 30;
}

void LaunchBare(benchmark::State& state) {
    const Touched memory(Gibibytes(state));
    char program[] = "/bin/true";
    char* const words[] = {program, nullptr};
    for (auto _ : state) {
        pid_t child = 0;
        int status = 0;
        if (posix_spawn(&child, program, nullptr, nullptr, words, environ) != 0 ||
            waitpid(child, &status, 0) != child)
            state.SkipWithError("no child");
    }
}
BENCHMARK(LaunchBare)->Arg(0)->Arg(2)->UseRealTime();

void Launch(benchmark::State& state) {
    const Touched memory(Gibibytes(state));
    for (auto _ : state) {
        ExecProcess process("/bin/true", 0);
        if (!process.Start() || process.WaitForProcess() != 0)
            state.SkipWithError("no child");
    }
}
BENCHMARK(Launch)->Arg(0)->Arg(2)->UseRealTime();

constexpr std::streamsize total = 256 << 20;
constexpr std::streamsize blockSize = 64 << 10;

void ThroughCatBare(benchmark::State& state) {
    std::vector<char> block(blockSize, 'x');
    for (auto _ : state) {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0)
            state.SkipWithError("no pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        char program[] = "cat";
        char* const words[] = {program, nullptr};
        pid_t child = 0;
        if (posix_spawnp(&child, program, &actions, nullptr, words, environ) != 0)
            state.SkipWithError("no child");
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        std::thread feeder([&] {
            for (std::streamsize sent = 0; sent < total;)
                sent += write(in[1], block.data(), blockSize);
            close(in[1]);
        });
        std::vector<char> back(blockSize);
        std::streamsize received = 0;
        for (ssize_t got = 0; (got = read(out[0], back.data(), blockSize)) > 0;)
            received += got;
        feeder.join();
        close(out[0]);
        waitpid(child, nullptr, 0);
        if (received != total)
            state.SkipWithError("bytes are lost");
    }
    state.SetBytesProcessed(state.iterations() * total);
}
BENCHMARK(ThroughCatBare)->UseRealTime()->Unit(benchmark::kMillisecond);

void ThroughCat(benchmark::State& state) {
    const std::vector<char> block(blockSize, 'x');
    for (auto _ : state) {
        ExecProcess process("cat", 3);
        oPipeStream* in = nullptr;
        iPipeStream* out = nullptr;
        iPipeStream* err = nullptr;
        if (OpenPipeWithChildProc(&in, &out, &err, &process) != errOK)
            state.SkipWithError("no child");
        std::thread feeder([&] {
            for (std::streamsize sent = 0; sent < total; sent += blockSize)
                in->write(block.data(), blockSize);
            DeletePipe(in);
        });
        std::vector<char> back(blockSize);
        std::streamsize received = 0;
        while (out->read(back.data(), blockSize) || out->gcount() > 0)
            received += out->gcount();
        feeder.join();
        DeletePipe(out);
        DeletePipe(err);
        if (process.WaitForProcess() != 0 || received != total)
            state.SkipWithError("bytes are lost");
    }
    state.SetBytesProcessed(state.iterations() * total);
}
BENCHMARK(ThroughCat)->UseRealTime()->Unit(benchmark::kMillisecond);

/// Pipes with nothing in them but for the last.
class Pipes {
public:
    explicit Pipes(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            oPipeStream* out = nullptr;
            iPipeStream* in = nullptr;
            CreatePipeSt(&out, &in);
            outs.emplace_back(out);
            ins.emplace_back(in);
            owned.emplace_back(in->GetReadEvent());
            events.push_back(owned.back().get());
        }
        *outs.back() << 'x' << std::flush;
    }
    std::vector<zelEvent*> events;

private:
    struct PipeDeleter {
        template <typename Stream>
        void operator()(Stream* stream) const {
            DeletePipe(stream);
        }
    };
    std::vector<std::unique_ptr<oPipeStream, PipeDeleter>> outs;
    std::vector<std::unique_ptr<iPipeStream, PipeDeleter>> ins;
    std::vector<std::unique_ptr<zelEvent>> owned;
};

void WaitAnyBare(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const Pipes pipes(count);
    std::vector<pollfd> set(count);
    const auto once = [&] {
        for (std::size_t i = 0; i < count; ++i)
            set[i] = {pipes.events[i]->GetDescriptor(), POLLIN, 0};
        if (poll(set.data(), count, -1) != 1 || set.back().revents != POLLIN)
            state.SkipWithError("the wrong descriptor");
    };
    for (auto _ : state)
        once();
    CountSystemCalls(state, once);
}
BENCHMARK(WaitAnyBare)->Arg(1)->Arg(8)->Arg(64);

void WaitAny(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const Pipes pipes(count);
    const auto once = [&] {
        if (zelEvent::WaitAny(pipes.events.data(), static_cast<unsigned int>(count), -1) !=
            static_cast<int>(count) - 1)
            state.SkipWithError("the wrong event");
    };
    for (auto _ : state)
        once();
    CountSystemCalls(state, once);
}
BENCHMARK(WaitAny)->Arg(1)->Arg(8)->Arg(64);

} // namespace
