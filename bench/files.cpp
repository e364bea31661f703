// SPDX-License-Identifier: MIT
//
// The file system beside its plainest rivals: a directory of 100,000 names beside bare readdir and
// std::filesystem, a tree of 20,000 files in 500 directories beside std::filesystem::remove_all,
// and a copy of 1 GiB beside cp. All works in the folder for temporary files (TMPDIR).
#include <pfudir.h>
#include <pfufs.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

/// A private folder, removed at the end.
class Folder {
public:
    Folder() {
        std::string name = (fs::temp_directory_path() / "plinth-bench-XXXXXX").string();
        path = mkdtemp(name.data());
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { fs::remove_all(path); }

    fs::path path;
};

void Touch(const fs::path& path) {
    close(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666));
}

const std::string& FolderOf100000() {
    static const Folder folder;
    static const bool filled = [] {
        for (int file = 0; file < 100000; ++file)
            Touch(folder.path / ("some-name-" + std::to_string(file)));
        return true;
    }();
    benchmark::DoNotOptimize(filled);
    static const std::string path = folder.path.string();
    return path;
}

template <typename Walk>
void ReadFolder(benchmark::State& state, Walk walk) {
    const char* const path = FolderOf100000().c_str();
    std::size_t names = 0;
    for (auto _ : state)
        names += walk(path);
    state.SetItemsProcessed(static_cast<long>(names));
}

std::size_t WalkWithPfuDir(const char* path) {
    const std::unique_ptr<pfuDir> directory(pfuDir::OpenDir(path));
    std::size_t names = 0;
    for (pfuDirEntry entry; directory->Read(entry); ++names)
        benchmark::DoNotOptimize(static_cast<const char*>(entry));
    return names;
}

std::size_t WalkWithReaddir(const char* path) {
    DIR* const stream = opendir(path);
    std::size_t names = 0;
    for (; const dirent* entry = readdir(stream); ++names)
        benchmark::DoNotOptimize(entry->d_name);
    closedir(stream);
    return names;
}

std::size_t WalkWithIterator(const char* path) {
    std::size_t names = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
        benchmark::DoNotOptimize(entry.path().c_str());
        ++names;
    }
    return names;
}

BENCHMARK_CAPTURE(ReadFolder, pfuDir, WalkWithPfuDir)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadFolder, readdir, WalkWithReaddir)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadFolder, directory_iterator, WalkWithIterator)->Unit(benchmark::kMillisecond);

template <typename Remove>
void RemoveTree(benchmark::State& state, Remove remove) {
    const Folder folder;
    const std::string tree = (folder.path / "tree").string();
    for (auto _ : state) {
        state.PauseTiming();
        for (int sub = 0; sub < 500; ++sub) {
            const fs::path path = fs::path(tree) / ("folder-" + std::to_string(sub));
            fs::create_directories(path);
            for (int file = 0; file < 40; ++file)
                Touch(path / ("file-" + std::to_string(file)));
        }
        sync();
        state.ResumeTiming();
        if (!remove(tree.c_str()))
            state.SkipWithError("the tree was not removed");
    }
}

BENCHMARK_CAPTURE(RemoveTree, pfuRemoveDirRec, [](const char* path) {
    return pfuFS::pfuRemoveDirRec(path) == errOK;
})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(RemoveTree, remove_all, [](const char* path) {
    return fs::remove_all(path) > 0;
})->Unit(benchmark::kMillisecond);

template <typename Copy>
void Copy1GiB(benchmark::State& state, Copy copy) {
    const Folder folder;
    const std::string from = (folder.path / "from").string(), to = (folder.path / "to").string();
    {
        std::ofstream stream(from, std::ios::binary);
        const std::string block(1 << 20, 'x');
        for (int mebibyte = 0; mebibyte < 1024; ++mebibyte)
            stream << block;
    }
    for (auto _ : state)
        if (!copy(from, to))
            state.SkipWithError("the file was not copied");
    state.SetBytesProcessed(state.iterations() << 30);
}

BENCHMARK_CAPTURE(Copy1GiB, pfuCopyFile,
                  [](const std::string& from, const std::string& to) {
                      return pfuFS::pfuCopyFile(from.c_str(), to.c_str()) == errOK;
                  })
    ->Iterations(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Copy1GiB, cp,
                  [](const std::string& from, const std::string& to) {
                      const std::string command = "cp --reflink=never " + from + " " + to;
                      return std::system(command.c_str()) == 0;
                  })
    ->Iterations(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
