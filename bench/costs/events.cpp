// SPDX-License-Identifier: MIT
#include <memory>
#include <vector>

#include <pipestream.h>

#include "costs.h"

namespace {

using namespace costs;

/// Pipes with an event on each; the last of them has bytes.
class Pipes {
public:
    explicit Pipes(unsigned int count) {
        for (unsigned int i = 0; i < count; ++i) {
            oPipeStream* out;
            iPipeStream* in;
            Require(CreatePipeSt(&out, &in) == errOK);
            ends.push_back(in);
            others.push_back(out);
            events.push_back(in->GetReadEvent());
        }
        *others.back() << 'x' << std::flush;
    }
    Pipes(const Pipes&) = delete;
    Pipes& operator=(const Pipes&) = delete;
    ~Pipes() {
        for (std::size_t i = 0; i < ends.size(); ++i) {
            delete events[i];
            DeletePipe(ends[i]);
            DeletePipe(others[i]);
        }
    }
    std::vector<zelEvent*> events;

private:
    std::vector<iPipeStream*> ends;
    std::vector<oPipeStream*> others;
};

void WaitForOne() {
    const Pipes pipes(1);
    Count([&] { Require(pipes.events[0]->Wait(-1)); });
}

void LookAtOne() {
    const Pipes pipes(1);
    Count([&] { Require(pipes.events[0]->IsSignaled()); });
}

template <unsigned int count>
void WaitForAny() {
    const Pipes pipes(count);
    Count([&] { Require(zelEvent::WaitAny(pipes.events.data(), count, -1) == count - 1); });
}

void WaitInSet() {
    const Pipes pipes(64);
    zelEventSet set;
    for (zelEvent* const event : pipes.events)
        Require(set.Add(event));
    Count([&] { Require(set.Wait(-1) == pipes.events.back()); });
}

void AddToSet() {
    const Pipes pipes(2);
    zelEventSet set;
    Require(set.Add(pipes.events[0]) && pipes.events[1]->GetDescriptor() >= 0);
    Count([&] { Require(set.Add(pipes.events[1]) && set.Remove(pipes.events[1])); });
}

void TimeOut() {
    const Pipes pipes(2);
    Count([&] { Require(!pipes.events[0]->Wait(1)); });
}

void Make() {
    oPipeStream* out;
    iPipeStream* in;
    Require(CreatePipeSt(&out, &in) == errOK);
    Count([&] { delete in->GetReadEvent(); });
    DeletePipe(out);
    DeletePipe(in);
}

const Row rows[] = {
    {"an event made", Make},
    {"IsSignaled", LookAtOne},
    {"Wait for one that is ready", WaitForOne},
    {"Wait for one that is not, for 1 ms", TimeOut},
    {"WaitAny over 1", WaitForAny<1>},
    {"WaitAny over 8", WaitForAny<8>},
    {"WaitAny over 64", WaitForAny<64>},
    {"an event put into a zelEventSet and out again", AddToSet},
    {"Wait of a zelEventSet of 64", WaitInSet},
};

} // namespace

const Family costs::events{"Events of pipes", rows};
