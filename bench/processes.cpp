// SPDX-License-Identifier: MIT
//
// One wait over many events beside the bare call of the system, with the system calls that it
// takes.
#include "pipestream.h"

#include <memory>
#include <vector>

#include <poll.h>

#include <benchmark/benchmark.h>

#include "bench/systemcalls.h"

namespace {

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
