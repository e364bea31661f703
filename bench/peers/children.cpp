// SPDX-License-Identifier: MIT
#include "children.h"

#include <algorithm>
#include <fstream>
#include <thread>
#include <vector>

#include <apr_general.h>
#include <sys/mman.h>

namespace {

using children::Must;

/// 2 GiB in small pages, touched when they are first asked for. A child that is a copy of this
/// process gets one of them too, but not while only the small process is asked for: then they do
/// not count.
class Ballast {
public:
    static constexpr std::size_t Size = std::size_t{2} << 30;
    static bool Fits() {
        std::ifstream facts("/proc/meminfo");
        for (std::string name, unit; facts >> name;) {
            std::size_t kibibytes = 0;
            if (name == "MemAvailable:")
                return facts >> kibibytes && kibibytes / 1024 > (Size >> 20) + 512;
            std::getline(facts, unit);
        }
        return false;
    }
    void Put(bool wanted) {
        if (wanted && block == nullptr) {
            void* const got =
                mmap(nullptr, Size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            Must(got != MAP_FAILED, "the memory");
            madvise(got, Size, MADV_NOHUGEPAGE);
            block = static_cast<char*>(got);
            std::fill_n(block, Size, 'x');
        }
        if (block != nullptr)
            madvise(block, Size, wanted ? MADV_DOFORK : MADV_DONTFORK);
    }

private:
    char* block = nullptr;
};

void LaunchAndWait(benchmark::State& state, int (*launch)(), bool large, const char* contender) {
    static Ballast ballast;
    ballast.Put(large);
    for (auto _ : state)
        Must(launch() == 0, contender);
}

constexpr std::size_t BlockSize = std::size_t{64} << 10;

/// The block goes `count` times through cat; with `look`, what comes back is looked at.
template <typename Child>
void Through(std::size_t count, const char* block, bool look) {
    Child child;
    std::thread feeder([&] {
        for (std::size_t sent = 0; sent < count; ++sent)
            child.Send(block, BlockSize);
        child.CloseInput();
    });
    std::vector<char> back(BlockSize);
    std::size_t received = 0;
    while (const std::size_t got = child.Receive(back.data(), BlockSize)) {
        for (std::size_t i = 0; look && i < got; ++i)
            Must(back[i] == block[(received + i) % BlockSize], Child::Name);
        received += got;
    }
    feeder.join();
    Must(received == count * BlockSize && child.Wait() == 0, Child::Name);
}

template <typename Child>
void ThroughCat(benchmark::State& state) {
    std::vector<char> block(BlockSize);
    for (std::size_t i = 0; i < BlockSize; ++i)
        block[i] = static_cast<char>(i * 7 + i / 256);
    Through<Child>(16, block.data(), true);
    for (auto _ : state)
        Through<Child>((std::size_t{256} << 20) / BlockSize, block.data(), false);
}

template <typename Child>
void Enter() {
    static const bool fits = Ballast::Fits();
    for (const bool large : {false, true})
        if (!large || fits)
            contest::Contend({large ? "launch and wait, 2 GiB touched" : "launch and wait"},
                             Child::Name,
                             [=](benchmark::State& state) {
                                 LaunchAndWait(state, Child::Launch, large, Child::Name);
                             })
                ->Iterations(large ? 3 : 50);
    if (!fits && Child::Name == contest::Plinth)
        std::cerr << "children: nothing with 2 GiB touched: too little memory is free\n";
    contest::Contend({"256 MiB through cat"}, Child::Name, ThroughCat<Child>)
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
}

} // namespace

void Contestants() {
    apr_initialize();
    Enter<children::Ours>();
    Enter<children::PocoChild>();
    Enter<children::BoostChild>();
    Enter<children::GioChild>();
    Enter<children::AprChild>();
    Enter<children::Bare>();
}
