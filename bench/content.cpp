// SPDX-License-Identifier: MIT
//
// The bytes of files: the checksum of 256 MiB, and of a sparse file past 4 GiB, beside a plain loop
// of 64 KiB reads with the same arithmetic, a replacement in 64 MiB beside a memmem loop in memory,
// and a lock nobody else wants beside the system calls that it cannot do without, which are counted
// as well. All works in the folder for temporary files (TMPDIR).
#include <pfufs.h>
#include <pfulock.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "bench/systemcalls.h"

namespace {

/// A private folder, removed at the end, and paths in it.
const std::string& In(const char* name) {
    static const struct Folder {
        Folder() {
            path = (std::filesystem::temp_directory_path() / "plinth-bench-XXXXXX").string();
            path = mkdtemp(path.data());
        }
        ~Folder() { std::filesystem::remove_all(path); }
        std::string path;
    } folder;
    static std::string path;
    return path = folder.path + "/" + name;
}

std::string FileOf(const char* name, const std::string& unit, std::size_t size) {
    const std::string path = In(name);
    if (std::filesystem::exists(path))
        return path;
    std::string text;
    while (text.size() < size)
        text += unit;
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

std::string LargeFile() {
    return FileOf("large", "every byte counts, whatever it is \xFF\x80\x01\n", 256u << 20);
}
std::string TextFile() {
    return FileOf("text", std::string(90, '.') + "needle....", 64u << 20);
}

void SetBytes(benchmark::State& state, const std::string& path) {
    state.SetBytesProcessed(static_cast<long>(std::filesystem::file_size(path)) *
                            state.iterations());
}

void CheckSum(benchmark::State& state) {
    const std::string path = LargeFile();
    unsigned int checksum = 0;
    for (auto _ : state)
        pfuFS::pfuCalcCheckSumByPath(path.c_str(), checksum);
    benchmark::DoNotOptimize(checksum);
    SetBytes(state, path);
}
BENCHMARK(CheckSum)->Unit(benchmark::kMillisecond)->UseRealTime();

void CheckSumPast4GiB(benchmark::State& state) {
    // In memory if it can be: there, what was never written takes no room in any cache.
    const std::string shared = "/dev/shm/plinth-bench-" + std::to_string(getpid());
    const bool inMemory = std::ofstream(shared, std::ios::binary).good();
    const std::string path = inMemory ? shared : In("sparse");
    std::ofstream(path, std::ios::binary).close();
    std::filesystem::resize_file(path, 5ull << 30);
    std::ofstream(path, std::ios::binary | std::ios::app) << "abc";
    unsigned int checksum = 0;
    for (auto _ : state)
        pfuFS::pfuCalcCheckSumByPath(path.c_str(), checksum);
    if (checksum != 0x00032660)
        state.SkipWithError("the checksum is wrong");
    SetBytes(state, path);
    std::filesystem::remove(path);
}
BENCHMARK(CheckSumPast4GiB)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void PlainReadLoop(benchmark::State& state) {
    const std::string path = LargeFile();
    for (auto _ : state) {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        unsigned char block[65536];
        unsigned char sum = 0, parity = 0;
        unsigned int count = 0;
        for (ssize_t got; (got = read(file, block, sizeof block)) > 0;) {
            count += static_cast<unsigned int>(got);
            for (ssize_t i = 0; i < got; ++i) {
                sum = static_cast<unsigned char>(sum + block[i]);
                parity ^= block[i];
            }
        }
        close(file);
        benchmark::DoNotOptimize(count + sum + parity);
    }
    SetBytes(state, path);
}
BENCHMARK(PlainReadLoop)->Unit(benchmark::kMillisecond)->UseRealTime();

void Replace(benchmark::State& state) {
    const std::string path = TextFile(), target = In("target");
    for (auto _ : state)
        pfuFS::pfuReplaceString("needle", "a longer text", path.c_str(), target.c_str());
    SetBytes(state, path);
}
BENCHMARK(Replace)->Unit(benchmark::kMillisecond)->UseRealTime();

void MemmemInMemory(benchmark::State& state) {
    const std::string path = TextFile();
    std::vector<char> text(std::filesystem::file_size(path));
    std::ifstream(path, std::ios::binary).read(text.data(), static_cast<long>(text.size()));
    std::vector<char> target(text.size() * 2);
    for (auto _ : state) {
        const char *from = text.data(), *const end = from + text.size();
        char* to = target.data();
        const auto copy = [&](const char* data, std::size_t size) {
            std::memcpy(to, data, size);
            to += size;
        };
        while (const void* found =
                   memmem(from, static_cast<std::size_t>(end - from), "needle", 6)) {
            const char* const at = static_cast<const char*>(found);
            copy(from, static_cast<std::size_t>(at - from));
            copy("a longer text", 13);
            from = at + 6;
        }
        copy(from, static_cast<std::size_t>(end - from));
        benchmark::ClobberMemory();
    }
    SetBytes(state, path);
}
BENCHMARK(MemmemInMemory)->Unit(benchmark::kMillisecond)->UseRealTime();

/// Times `work`, and counts what a hundred more of it take in system calls.
template <typename Work>
void MeasureLock(benchmark::State& state, Work work) {
    for (auto _ : state)
        work();
    CountSystemCalls(state, work);
}

void LockAndRelease(benchmark::State& state) {
    const std::unique_ptr<pfuFileLock> lock(pfuFileLock::Construct(In("lock").c_str()));
    MeasureLock(state, [&] {
        lock->Lock();
        lock->Release();
    });
}
BENCHMARK(LockAndRelease);

void OpenFlockAndClose(benchmark::State& state) {
    const std::string path = In("lock");
    MeasureLock(state, [&] {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
        flock(file, LOCK_EX | LOCK_NB);
        flock(file, LOCK_UN);
        close(file);
    });
}
BENCHMARK(OpenFlockAndClose);

} // namespace
