// SPDX-License-Identifier: MIT
//
// What the contenders of the row on files do, each by members of its own, as far as it can: Read a
// folder, Remove a tree, Copy a file, and Ask for the facts of one. And the system calls that do
// it.
#ifndef PLINTH_BENCH_PEERS_FILES_H
#define PLINTH_BENCH_PEERS_FILES_H

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include "contest.h"

namespace peers {

inline bool IsSelfOrParent(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

/// How many names a folder has, and how many bytes.
struct Names {
    std::size_t count = 0;
    std::size_t bytes = 0;
    void Add(const char* name) {
        ++count;
        bytes += std::strlen(name);
    }
    bool operator==(const Names&) const = default;
};

struct Facts {
    bool isDirectory;
    long long size;
    long long modified;
    bool operator==(const Facts&) const = default;
};

/// The system calls alone.
struct Calls {
    static void Require(bool success) {
        if (!success)
            std::abort();
    }
    template <typename Take>
    static void EachEntry(int folder, Take take) {
        alignas(dirent64) char entries[32768];
        for (;;) {
            const ssize_t got = ::getdents64(folder, entries, sizeof entries);
            Require(got >= 0);
            if (got == 0)
                return;
            for (ssize_t at = 0; at < got;) {
                const auto* const entry = reinterpret_cast<const dirent64*>(entries + at);
                at += entry->d_reclen;
                if (!IsSelfOrParent(entry->d_name))
                    take(*entry);
            }
        }
    }
    static int OpenFolder(int parent, const char* name) {
        const int folder = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        Require(folder >= 0);
        return folder;
    }
    static Names Read(const char* path) {
        const int folder = OpenFolder(AT_FDCWD, path);
        Names names;
        EachEntry(folder, [&](const dirent64& entry) { names.Add(entry.d_name); });
        ::close(folder);
        return names;
    }
    static void RemoveFrom(int parent, const char* name) {
        const int folder = OpenFolder(parent, name);
        EachEntry(folder, [&](const dirent64& entry) {
            if (entry.d_type == DT_DIR)
                RemoveFrom(folder, entry.d_name);
            else
                Require(::unlinkat(folder, entry.d_name, 0) == 0);
        });
        ::close(folder);
        Require(::unlinkat(parent, name, AT_REMOVEDIR) == 0);
    }
    static void Remove(const char* path) { RemoveFrom(AT_FDCWD, path); }
    static void Copy(const char* from, const char* to) {
        const int source = ::open(from, O_RDONLY | O_CLOEXEC);
        const int target = ::open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        ssize_t moved;
        do
            moved = ::sendfile(target, source, nullptr, 1 << 30);
        while (moved > 0);
        Require(moved == 0 && ::close(source) == 0 && ::close(target) == 0);
    }
    static Facts Ask(const char* path) {
        struct stat info;
        Require(::stat(path, &info) == 0);
        return {S_ISDIR(info.st_mode), info.st_size, info.st_mtime};
    }
};

/// A private folder, removed at the end: where the environment says, else in memory where the
/// system has a folder there.
class Scratch {
public:
    Scratch() {
        const std::filesystem::path memory = "/dev/shm";
        const bool inMemory =
            std::getenv("TMPDIR") == nullptr && std::filesystem::is_directory(memory);
        const auto base = inMemory ? memory : std::filesystem::temp_directory_path();
        path = (base / "plinth-peers-XXXXXX").string();
        Calls::Require(::mkdtemp(path.data()) != nullptr);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() { std::filesystem::remove_all(path); }
    std::string In(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
};

inline const Scratch& Folder() {
    static const Scratch scratch;
    return scratch;
}

/// Empty files in a new folder.
inline void Fill(const std::string& folder, std::size_t files) {
    std::filesystem::create_directories(folder);
    for (std::size_t i = 0; i < files; ++i)
        ::close(::open((folder + "/file-" + std::to_string(i)).c_str(),
                       O_CREAT | O_WRONLY | O_CLOEXEC, 0666));
}

/// The file of that size, made when it is asked for first.
inline std::string FileOf(std::size_t size) {
    const std::string path = Folder().In("source-" + std::to_string(size));
    if (!std::filesystem::exists(path))
        std::ofstream(path, std::ios::binary) << std::string(size, 'x');
    return path;
}

template <typename Contender>
void Enter(const char* contender) {
    for (const std::size_t size : {10, 100, 1000, 10000})
        contest::Contend({"read a folder", size}, contender, [=](benchmark::State& state) {
            const std::string path = Folder().In("folder-" + std::to_string(size));
            if (!std::filesystem::exists(path))
                Fill(path, size);
            if (Contender::Read(path.c_str()) != Calls::Read(path.c_str()))
                state.SkipWithError("the names are others");
            for (auto _ : state)
                benchmark::DoNotOptimize(Contender::Read(path.c_str()));
        });

    if constexpr (requires(const char* path) { Contender::Remove(path); })
        for (const std::size_t size : {10, 100, 1000, 10000})
            contest::Contend({"remove a tree", size}, contender, [=](benchmark::State& state) {
                const std::string path = Folder().In("tree");
                for (auto _ : state) {
                    state.PauseTiming();
                    for (std::size_t folder = 0; folder < size / 10; ++folder)
                        Fill(path + "/folder-" + std::to_string(folder), 10);
                    state.ResumeTiming();
                    Contender::Remove(path.c_str());
                    if (::access(path.c_str(), F_OK) == 0)
                        state.SkipWithError("the tree was not removed");
                }
            })->Iterations(static_cast<int>(10'000 / size));

    if constexpr (requires(const char* path) { Contender::Copy(path, path); })
        for (const auto& [name, size] :
             {std::pair("4 KiB", 4096), std::pair("64 KiB", 65536), std::pair("8 MiB", 8 << 20)})
            contest::Contend({std::string("copy ") + name}, contender,
                             [=, size = size](benchmark::State& state) {
                                 const std::string from = FileOf(static_cast<std::size_t>(size)),
                                                   to = Folder().In("target");
                                 for (auto _ : state) {
                                     state.PauseTiming();
                                     ::unlink(to.c_str());
                                     state.ResumeTiming();
                                     Contender::Copy(from.c_str(), to.c_str());
                                 }
                                 if (Calls::Ask(to.c_str()).size != size)
                                     state.SkipWithError("the copy has another size");
                             });

    if constexpr (requires(const char* path) { Contender::Ask(path); })
        contest::Contend({"ask for type, size and time"}, contender, [](benchmark::State& state) {
            const std::string path = FileOf(4096);
            if (Contender::Ask(path.c_str()) != Calls::Ask(path.c_str()))
                state.SkipWithError("the facts are others");
            for (auto _ : state)
                benchmark::DoNotOptimize(Contender::Ask(path.c_str()));
        });
}

} // namespace peers

#endif
