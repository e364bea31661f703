// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

#include <dsstring.h>
#include <pfudir.h>
#include <pfufs.h>
#include <pfulock.h>

#include "outside/quillmarsh/files.h"
#include "outside/varnholt/files.h"
#include "outside/win32/files.h"
#include "outside/win32/handles.h"
#include "outside/win32/pipes.h"
#include "sweep.h"

namespace {

using namespace sweep;

/// errOK where all goes well, and always some word.
void ExpectStatus(errstatus status, int line = __builtin_LINE()) {
    Expect(MustWork() ? status == errOK : status != errNone, "a fitting status", line);
}

const std::string text(10000, 'x');

void CopyFile() {
    const Folder folder;
    folder.Put("from", text);
    folder.Put("to", "former");
    const errstatus status = Try(errFailed, [] { return pfuFS::pfuCopyFile("from", "to"); });
    ExpectStatus(status);
    Expect(folder.Get("from") == text, "the source stays");
    Expect(status != errOK || folder.Get("to") == text, "a copy is whole");
    Expect(pfuFS::pfuCopyFile("from", "to") == errOK, "the next one succeeds");
}

void ReplaceString() {
    const Folder folder;
    folder.Put("from", "a rose is a rose");
    const auto replace = [] { return pfuFS::pfuReplaceString("rose", "tulip", "from", "to"); };
    const errstatus status = Try(errFailed, replace);
    Expect(status == errOK || (status == errFailed && !MustWork()), "errOK or errFailed");
    Expect(folder.Get("from") == "a rose is a rose", "the source stays");
    Expect(status != errOK || folder.Get("to") == "a tulip is a tulip", "all is replaced");
    Expect(replace() == errOK, "the next one succeeds");
}

void CheckSum() {
    const Folder folder;
    folder.Put("file", "abc");
    unsigned int sum = 77;
    const auto ask = [&] { return pfuFS::pfuCalcCheckSumByPath("file", sum); };
    const errstatus status = Try(errFailed, ask);
    Expect(status == errOK || (status == errFailed && !MustWork()), "errOK or errFailed");
    const unsigned int right = 3 << 16 | ('a' + 'b' + 'c') % 256 << 8 | ('a' ^ 'b' ^ 'c');
    Expect(sum == (status == errOK ? right : 77), "the right sum or none");
}

void RenameTo(const std::string& target) {
    const Folder folder;
    folder.Put("from", text);
    const errstatus status =
        Try(errFailed, [&] { return pfuFS::pfuRenameFile("from", target.c_str()); });
    ExpectStatus(status);
    const bool there = folder.Get(target.c_str()) == text;
    Expect(status == errOK ? there : there || folder.Get("from") == text, "nothing is lost");
    Expect(status != errOK || folder.Get("from") == "(none)", "a moved file is gone");
    std::remove(target.c_str());
}

void Rename() {
    RenameTo("to");
}

void RenameToOtherFileSystem() {
    std::string place = "/dev/shm/plinth-sweep-XXXXXX";
    if (mkdtemp(place.data()) == nullptr)
        return Expect(false, "there is another file system");
    RenameTo(place + "/to");
    const auto left = std::filesystem::remove_all(place) - 1;
    Expect(left == 0 || (left == 1 && HitIn("rmdir")) || (left == 2 && HitIn("unlink")),
           "no half of a file is left where it can be helped");
}

void DeleteFile() {
    const Folder folder;
    folder.Put("one", "1");
    folder.Put("two", "2");
    const errstatus one = Try(errFailed, [] { return pfuFS::pfuDeleteFile("one"); });
    const errstatus two = Try(errFailed, [] { return pfuFS::pfuUnlink("two"); });
    ExpectStatus(one);
    ExpectStatus(two);
    Expect((folder.Get("one") == "(none)") == (one == errOK), "deleted if it says so");
    Expect((folder.Get("two") == "(none)") == (two == errOK), "unlinked if it says so");
    folder.Put("three", "3");
    const int three = Try(-1, [] { return zel_unlink("three"); });
    Expect((folder.Get("three") == "(none)") == (three == 0), "unlinked if it says so");
}

void Questions() {
    const Folder folder;
    folder.Put("file", "12345");
    pfStat info{pfuDirPath()};
    long long size = -7, time = -7;
    const errstatus status = Try(errFailed, [&] { return pfuFS::pfuStat("file", info); });
    Expect(status == errOK || (status == errNotFound && !MustWork()), "found or not");
    Expect(info.initialized() == (status == errOK), "an answer where it says so");
    Expect(status != errOK || (info.fileSize() == 5 && !info.isDir()), "the right answer");
    const errstatus sized = Try(errFailed, [&] { return pfuFS::pfuGetFileSize("file", size); });
    Expect(sized == errOK ? size == 5 : size == -7 && sized == errNotFound, "the size or none");
    const errstatus timed = Try(errFailed, [&] { return pfuFS::pfuGetModTime("file", time); });
    Expect(timed == errOK ? time > 0 : time == -7 && timed == errNotFound, "the time or none");
    bool answers[5];
    Try([&] {
        answers[0] = pfuFS::pfuIsDir(".");
        answers[1] = pfuFS::pfuIsValidDirectory(".");
        answers[2] = pfuFS::pfuIsExecutable("file");
        answers[3] = pfuFS::pfuIsValidFile("file");
        answers[4] = !pfuFS::pfuIsLink("file");
    });
    for (const bool answer : answers)
        Expect(answer || !MustWork(), "the right answers");
}

void Machine() {
    double room = 0;
    const errstatus status = Try(errFailed, [&] { return pfuFS::pfuGetFreeSpace("/tmp", room); });
    Expect(status == errOK ? room > 0 : status == errNoDiskInfo && room == -1, "room or none");
    Expect(status == errOK || !MustWork(), "a fitting status");
    dsString computer("?"), user("?"), drives("?");
    bool known = false;
    if (Try([&] { known = pfuFS::pfuGetComputerName(computer); }))
        Expect(known ? !computer.IsEmpty() : std::string(computer) == "UnknownComputer", "a name");
    Expect(known || !MustWork(), "it is known");
    known = false;
    if (Try([&] { known = pfuFS::pfuGetUserName(user); }))
        Expect(known ? !user.IsEmpty() : std::string(user) == "UnknownUser", "a name");
    Expect(known || !MustWork(), "it is known");
    Try([&] { Expect(pfuFS::pfuGetLogicalDrives(drives) == errOK, "there are none"); });
}

void MakeDirectories() {
    const Folder folder;
    const errstatus one = Try(errFailed, [] { return pfuFS::pfuMakeDir("one"); });
    ExpectStatus(one);
    Expect(std::filesystem::is_directory("one") == (one == errOK), "made if it says so");
    const errstatus rec = Try(errFailed, [] { return pfuFS::pfuMakeDirRec("a/b/c"); });
    ExpectStatus(rec);
    Expect(std::filesystem::is_directory("a/b/c") == (rec == errOK), "made if it says so");
    const errstatus below =
        Try(errFailed, [] { return pfuFS::pfuMakeDirRec(pfuDirPath("."), pfuDirPath("d/e")); });
    ExpectStatus(below);
    Expect(std::filesystem::is_directory("d/e") == (below == errOK), "made if it says so");
    const errstatus gone = Try(errFailed, [] { return pfuFS::pfuRemoveDir("one"); });
    Expect(!std::filesystem::exists("one") == (gone == errOK || one != errOK), "removed if so");
    Expect(pfuFS::pfuMakeDirRec("a/b/c") == errOK, "the next one succeeds");
}

void RemoveTree() {
    const Folder folder;
    std::filesystem::create_directories("tree/a/b");
    folder.Put("tree/a/file", "");
    folder.Put("beside", "1");
    std::filesystem::create_symlink("../beside", "tree/link");
    const errstatus status = Try(errFailed, [] { return pfuFS::pfuRemoveDirRec("tree"); });
    ExpectStatus(status);
    Expect(std::filesystem::exists("tree") == (status != errOK), "removed if it says so");
    Expect(folder.Get("beside") == "1", "what lies beside stays");
    Expect(status == errOK || pfuFS::pfuRemoveDirRec("tree") == errOK, "the next one succeeds");
    Expect(!std::filesystem::exists("tree"), "it is gone");
}

void ChangeDirectory() {
    const Folder folder;
    std::filesystem::create_directory("sub");
    const std::filesystem::path before = std::filesystem::current_path();
    const errstatus status = Try(errFailed, [] { return pfuFS::pfuChangeDir("sub"); });
    ExpectStatus(status);
    Expect(std::filesystem::current_path() == (status == errOK ? before / "sub" : before),
           "changed if it says so");
    pfuDirPath neutral;
    pfuOSPath native;
    Try([&] { neutral.GetCurrentDir(), native.GetCurrentDir(); });
    Expect(MustWork() ? !neutral.IsEmpty() && *native != '\0' : true, "the place is known");
    Try([&] { neutral.GetHomeDir(), native.GetHomeDir(); });
    Expect(!neutral.IsEmpty() || !MustWork(), "home is known");
}

/// `open` gives whether the stream says that it is open. Where memory runs out it throws, and a
/// stream of the standard library may then be open and without a buffer.
template <typename Stream, typename Open>
void OpenOne(Stream& stream, Open open) {
    bool opened = false;
    if (Try([&] { opened = open(); }))
        Expect(opened ? stream.is_open() : !stream.is_open() && !MustWork(), "open if it says so");
    stream.close();
}

void OpenStreams() {
    const Folder folder;
    folder.Put("file", "abc");
    std::ifstream in;
    std::ofstream out;
    std::fstream both;
    std::filebuf buffer;
    const int reading = static_cast<int>(std::ios::in);
    const int writing = static_cast<int>(std::ios::out | std::ios::app);
    OpenOne(in, [&] { return pfuFS::pfuOpenStream("file", reading, in) == errOK; });
    OpenOne(both, [&] { return pfuFS::pfuOpenStream("file", reading, both) == errOK; });
    OpenOne(out, [&] { return pfuFS::pfuOpenStream("file", writing, out) == errOK; });
    OpenOne(buffer, [&] { return OpenFile(buffer, "file", reading, 0) != nullptr; });
    OpenOne(in, [&] { return OpenFile(in, "file"), !in.fail(); });
}

void ReadDirectory() {
    const Folder folder;
    for (const char* name : {"a1", "a2", "b1", "b2"})
        folder.Put(name, "");
    dsXArray<pfuDirPath*> matches(nullptr);
    std::unique_ptr<pfuDir> directory;
    Try([&] { directory.reset(pfuDir::OpenDir(pfuDirPath("."))); });
    Expect(directory != nullptr || !MustWork(), "it opens");
    if (directory == nullptr)
        return;
    pfuDirEntry entry;
    int seen = 0;
    Try([&] {
        while (directory->Read(entry))
            ++seen;
    });
    Expect(seen == 4 || (seen < 4 && !MustWork()), "each name once");
    directory.reset();
    Try([&] { directory.reset(pfuDir::OpenDir(pfuDirPath("."))); });
    if (directory != nullptr) {
        bool found = false;
        Try([&] { found = directory->ReadNextMatching(entry, "a*"); });
        Expect(found ? *entry == 'a' : !MustWork(), "a name that matches");
        const bool some = Try(false, [&] { return directory->ExpandPattern("b*", matches); });
        Expect(some ? matches.GetSize() != 0 : !MustWork(), "names where it says so");
    }
    for (unsigned int i = 0; i < matches.GetSize(); ++i) {
        Expect(*matches[i][0] == 'b', "names that match");
        delete matches[i];
    }
    Try([&] { directory.reset(); });
}

void LockFiles() {
    const Folder folder;
    std::unique_ptr<pfuFileLock> lock, other(pfuFileLock::Construct(pfuDirPath("lock")));
    Try([&] { lock.reset(pfuFileLock::Construct(pfuDirPath("lock"))); });
    Expect(lock != nullptr || MemoryFails(), "a lock, unless memory has run out");
    if (lock == nullptr)
        return;
    errstatus status = Try(errFailed, [&] { return lock->Lock(); });
    ExpectStatus(status);
    if (status == errOK)
        Expect(other->Release() == errShared, "it is held");
    const bool earlier = Hit();
    errno = 0;
    const errstatus released = Try(errFailed, [&] { return lock->Release(); });
    ExpectStatus(released);
    Expect(earlier || !HitIn("close") || MustWork() || released == errIO, "the reason is told");
    Expect(status != errOK || lock->Lock() == errOK, "it can be had again");
    Try([&] { lock.reset(); });
    Expect(other->Lock() == errOK, "another has it afterwards");
}

void LockFileBuffer() {
    const Folder folder;
    folder.Put("file", "abc");
    lockFileBuf buffer;
    const int mode = static_cast<int>(std::ios::in | std::ios::out);
    const bool failed = Try(true, [&] { return buffer.Open("file", mode, 0); });
    Expect(failed ? !MustWork() : buffer.is_open(), "open if it says so");
    if (!failed) {
        buffer.sputc('x');
        const bool broken = Try(true, [&] { return buffer.Close(); });
        Expect(!broken || !MustWork(), "it closes");
        Expect(!buffer.is_open(), "closed in any case");
        Expect(broken || folder.Get("file") == "xbc", "written if it says so");
    }
}

void NativeFiles() {
    const Folder folder;
    void* const none = zelHandleOfDescriptor(-1);
    void* file = none;
    // To write, shared with nobody, in a new or emptied file.
    Try([&] { file = uCreateFile("file", 0x40000000, 0, nullptr, 2, 0x80, nullptr); });
    Expect(file != none || !MustWork(), "it opens");
    if (file == none)
        return;
    unsigned int count = 0;
    const bool written = Try(false, [&] { return WriteFile(file, "abc", 3, &count, nullptr); });
    Expect(written ? count == 3 : !MustWork(), "written if it says so");
    const bool locked = Try(false, [&] { return LockFile(file); });
    Expect(locked || !MustWork(), "it can be locked");
    Try([&] { UnlockFile(file), win32CloseFileHandle(file); });
    Expect(!written || folder.Get("file") == "abc", "what was written is there");

    Try([&] { file = uCreateFile("file", 0x80000000, 1, nullptr, 3, 0x80, nullptr); });
    char got[8] = "";
    if (file != none) {
        const bool read = Try(false, [&] { return ReadFile(file, got, 3, &count, nullptr); });
        Expect(!read || !written || std::string("abc").starts_with(std::string(got, count)),
               "and can be read");
        Try([&] { CloseHandle(file); });
    }
    const bool moved = Try(false, [] { return uMoveFileEx("file", "other", 3); });
    Expect(folder.Get(moved ? "file" : "other") == "(none)", "moved if it says so");
    const bool made = Try(false, [] { return uCreateDirectory("made", nullptr); });
    const bool gone = Try(false, [] { return uRemoveDirectory("made"); });
    Expect(std::filesystem::exists("made") == (made && !gone), "made and removed if they say so");
    const bool deleted = Try(false, [] { return uDeleteFile("other"); });
    Expect(!moved || deleted == (folder.Get("other") == "(none)"), "deleted if it says so");

    WIN32_FIND_DATAA found;
    void* search = none;
    folder.Put("one", "");
    folder.Put("two", "");
    Try([&] { search = uFindFirstFile("./*", &found); });
    Expect(search != none || !MustWork(), "the search begins");
    if (search != none) {
        bool more = false;
        Try([&] { more = uFindNextFile(search, &found); });
        Expect(more || !MustWork(), "there are two");
        Try([&] { win32FindClose(search); });
    }
}

/// Texts in fixed buffers: nothing can fail in there.
void Paths() {
    Try([] {
        pfuDirPath path("|a|b"), head, tail, joined(path, pfuDirPath("c"));
        pfuDirEntry entry, first;
        entry = "name";
        entry += ".txt";
        joined = pfuDirPath(joined, entry);
        path += entry;
        Expect(joined.GetHead(head) && joined.GetTail(entry), "it has a head and a tail");
        Expect(joined.GetTail(tail) && joined.GetHead(first), "of both kinds");
        Expect(std::string(joined) == "|a|b|c|name.txt", "it is joined");
        pfuOSPath native(joined);
        native.TrimTrailSeps();
        Expect(std::string(native) == "/a/b/c/name.txt", "in native form");
        native.ToNeutral(path);
        native.AddWildcard();
        char separator[] = "|";
        Expect(issep(separator) && pfuIsStringPathAbsolute(path) && IsUnixStyleAbsPath(path) &&
                   !IsWinStyleAbsPath(path),
               "absolute");
        path = "|a|b|c";
        path += pfuDirPath("d");
        Expect(pfuFS::pfuIsParentPath(joined, "|a", tail) && std::string(tail) == "b|c|name.txt",
               "below its parent");
        Expect(pfuFS::pfuReadLink(path, tail) == errNotSupported, "no such thing");
    });
    Expect(!Hit(), "nothing is asked of the system");
}

const Scenario scenarios[] = {
    {"paths",
     "pfuDirPath::* pfuDirEntry::* pfuOSPath::* issep IsUnixStyleAbsPath IsWinStyleAbsPath "
     "pfuIsStringPathAbsolute pfuFS::pfuIsParentPath pfuFS::pfuReadLink",
     Paths},
    {"copy a file", "pfuFS::pfuCopyFile uMoveBytes", CopyFile},
    {"replace a text", "pfuFS::pfuReplaceString", ReplaceString},
    {"a checksum", "pfuFS::pfuCalcCheckSumByPath", CheckSum},
    {"rename", "pfuFS::pfuRenameFile", Rename},
    {"move to another file system", "pfuFS::pfuRenameFile", RenameToOtherFileSystem},
    {"delete", "pfuFS::pfuDeleteFile pfuFS::pfuUnlink zel_unlink", DeleteFile},
    {"questions",
     "pfStat::pfStat pfuFS::pfuStat pfuFS::pfuIsDir pfuFS::pfuIsValid* pfuFS::pfuIsExecutable "
     "pfuFS::pfuIsLink pfuFS::pfuGetFileSize pfuFS::pfuGetModTime FileInfo_Read",
     Questions},
    {"the machine",
     "pfuFS::pfuGetFreeSpace pfuFS::pfuGetComputerName pfuFS::pfuGetUserName "
     "pfuFS::pfuGetLogicalDrives uGetDiskFreeSpace uGetComputerName uGetUserName "
     "uGetLogicalDriveStrings",
     Machine},
    {"make directories", "pfuFS::pfuMakeDir* pfuFS::pfuRemoveDir", MakeDirectories},
    {"remove a tree", "pfuFS::pfuRemoveDirRec zelTreeWalk::*", RemoveTree},
    {"the current directory",
     "pfuFS::pfuChangeDir pfu*Path::Get*Dir zel_chdir uGetCurrentDirectory "
     "uGetEnvironmentVariable",
     ChangeDirectory},
    {"open streams", "pfuFS::pfuOpenStream OpenFile", OpenStreams},
    {"read a directory", "pfuDir::* pfuDirImplementation::* uFindNextName", ReadDirectory},
    {"lock files", "pfuFileLock::*", LockFiles},
    {"a locking buffer", "lockFileBuf::*", LockFileBuffer},
    {"native files",
     "uCreateFile WriteFile ReadFile LockFile UnlockFile win32CloseFileHandle CloseHandle "
     "uMoveFileEx uCreateDirectory uRemoveDirectory uDeleteFile uFindFirstFile uFindNextFile "
     "win32FindClose",
     NativeFiles},
};

} // namespace

namespace sweep {
const Family files{"files", scenarios};
}
