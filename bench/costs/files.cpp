// SPDX-License-Identifier: MIT
#include <fstream>
#include <memory>
#include <string>

#include <dsstring.h>
#include <pfudir.h>
#include <pfufs.h>
#include <pfulock.h>

#include "costs.h"

namespace {

using namespace costs;

void Put(const char* path, std::size_t size) {
    std::ofstream(path) << std::string(size, 'x');
}

void Stat() {
    Put("file", 10);
    Count([] { Require(pfStat("file").fileSize() == 10); });
}

void StatNothing() {
    Count([] { Require(!pfStat("nothing").initialized()); });
}

void StatLink() {
    Put("file", 10);
    Require(system("ln -s file link") == 0);
    Count([] { Require(pfStat("link").isLink()); });
}

void AskKind() {
    Count([] { Require(pfuFS::pfuIsDir(".")); });
}

void FreeSpace() {
    double bytes;
    Count([&] { Require(pfuFS::pfuGetFreeSpace(".", bytes) == errOK); });
}

void JoinPaths() {
    const pfuDirPath base("/some/folder"), rest("file");
    Count([&] { Require(!pfuDirPath(base, rest).IsEmpty()); });
}

void CurrentFolder() {
    Count([] {
        pfuDirPath path;
        path.GetCurrentDir();
    });
}

void OpenStream() {
    Put("file", 10);
    Count([] {
        std::ifstream stream;
        Require(pfuFS::pfuOpenStream("file", std::ios::in, stream) == errOK);
    });
}

template <std::size_t size>
void Copy() {
    Put("file", size);
    Count([] { pfuFS::pfuDeleteFile("copy"); },
          [] { Require(pfuFS::pfuCopyFile("file", "copy") == errOK); });
}

void CheckSum() {
    Put("file", 64 * 1024);
    unsigned int sum;
    Count([&] { Require(pfuFS::pfuCalcCheckSumByPath("file", sum) == errOK); });
}

void Replace() {
    std::ofstream("file") << std::string(32 * 1024, 'x') << "old" << std::string(32 * 1024, 'x');
    Count([] { Require(pfuFS::pfuReplaceString("old", "new one", "file", "to") == errOK); });
}

void Rename() {
    Count([] { Put("file", 10); }, [] { Require(pfuFS::pfuRenameFile("file", "other") == errOK); });
}

void Delete() {
    Count([] { Put("file", 10); }, [] { Require(pfuFS::pfuDeleteFile("file") == errOK); });
}

void Lock() {
    const std::unique_ptr<pfuFileLock> lock(pfuFileLock::Construct("lock"));
    Count([&] { Require(lock->Lock() == errOK && lock->Release() == errOK); });
}

const Row fileRows[] = {
    {"a file asked about (pfStat)", Stat},
    {"a symbolic link asked about", StatLink},
    {"a path where nothing is asked about", StatNothing},
    {"pfuIsDir of a folder", AskKind},
    {"the free space of a file system", FreeSpace},
    {"two paths joined", JoinPaths},
    {"the current folder", CurrentFolder},
    {"a stream opened and closed", OpenStream},
    {"a file of 4 KiB copied", Copy<4096>},
    {"a file of 1 MiB copied", Copy<1024 * 1024>},
    {"the checksum of 64 KiB", CheckSum},
    {"a text replaced in 64 KiB", Replace},
    {"a file renamed", Rename},
    {"a file deleted", Delete},
    {"a file lock taken and released", Lock},
};

void MakeFolder() {
    Count([] {
        Require(pfuFS::pfuMakeDir("folder") == errOK);
        Pause();
        pfuFS::pfuRemoveDir("folder");
        Continue();
    });
}

void MakeFolders() {
    Count([] { pfuFS::pfuRemoveDirRec("a"); },
          [] { Require(pfuFS::pfuMakeDirRec("a/b/c/d") == errOK); });
}

void ManyFiles() {
    pfuFS::pfuMakeDir("many");
    for (int i = 0; i < 100; ++i)
        Put(("many/" + std::to_string(i)).c_str(), 1);
}

void ReadFolder() {
    ManyFiles();
    Count([] {
        const std::unique_ptr<pfuDir> folder(pfuDir::OpenDir("many"));
        pfuDirEntry entry;
        int count = 0;
        while (folder->Read(entry))
            ++count;
        Require(count == 100);
    });
}

void MatchInFolder() {
    ManyFiles();
    Count([] {
        const std::unique_ptr<pfuDir> folder(pfuDir::OpenDir("many"));
        pfuDirEntry entry;
        Require(folder->ReadNextMatching(entry, "9?"));
        while (folder->ReadNextMatching(entry, "9?"))
            continue;
    });
}

void ExpandInFolder() {
    ManyFiles();
    Count([] {
        const std::unique_ptr<pfuDir> folder(pfuDir::OpenDir("many"));
        dsXArray<pfuDirPath*> matches(nullptr);
        Require(folder->ExpandPattern("9?", matches) && matches.GetSize() == 10);
        for (unsigned int i = 0; i < matches.GetSize(); ++i)
            delete matches[i];
    });
}

void RemoveFiles() {
    Count([] { ManyFiles(); }, [] { Require(pfuFS::pfuRemoveDirRec("many") == errOK); });
}

void RemoveTree() {
    Count(
        [] {
            for (int i = 0; i < 10; ++i) {
                const std::string folder = "tree/" + std::to_string(i);
                pfuFS::pfuMakeDirRec(folder.c_str());
                Put((folder + "/file").c_str(), 1);
            }
        },
        [] { Require(pfuFS::pfuRemoveDirRec("tree") == errOK); });
}

const Row folderRows[] = {
    {"a folder made", MakeFolder},
    {"four folders made, one in the other", MakeFolders},
    {"a folder of 100 files read", ReadFolder},
    {"a folder of 100 files read, 10 match a pattern", MatchInFolder},
    {"a folder of 100 files expanded to 10 paths", ExpandInFolder},
    {"a folder of 100 files removed", RemoveFiles},
    {"a tree of 10 folders with a file in each removed", RemoveTree},
};

} // namespace

const Family costs::files{"Files", fileRows};
const Family costs::folders{"Folders", folderRows};
