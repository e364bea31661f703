// SPDX-License-Identifier: MIT
#include <dsstring.h>
#include <pfudir.h>
#include <pfufs.h>

#include <atomic>
#include <clocale>
#include <memory>
#include <set>
#include <thread>

#include <fcntl.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include "outside/quillmarsh/files.h"
#include "outside/varnholt/files.h"
#include "outside/varnholt/text.h"
#include "outside/win32/handles.h"
#include "posix/diskfactors.h"
#include "tests/countnew.h"
#include "tests/infolder.h"

namespace {

using Names = std::multiset<std::string>;
using Files = InFolder;

Names Listing(const fs::path& folder) {
    const std::unique_ptr<pfuDir> directory(pfuDir::OpenDir(folder.c_str()));
    Names names;
    for (pfuDirEntry entry; directory && directory->Read(entry);)
        names.insert(static_cast<const char*>(entry));
    return names;
}

TEST_F(Files, AreToldApartThroughLinksAndByEitherFormOfPath) {
    fs::create_directories("d/sub");
    Put("d/file", "12345");
    fs::create_symlink("file", "d/toFile");
    fs::create_directory_symlink("sub", "d/toFolder");
    fs::create_symlink("ring", "d/ring");
    for (const auto& row : support::Rows( // found; a directory; a link
             "d|file 1 0 0;  d\\sub| 1 1 0;  d/toFile 1 0 1;  d|toFolder|| 1 1 1;  d|ring 1 0 1;"
             "d|missing 0 0 0;  d|file|x 0 0 0;  - 0 0 0;  | 1 1 0")) {
        SCOPED_TRACE(row[0]);
        const char* const path = row[0].c_str();
        const bool found = row[1] == "1", directory = row[2] == "1", link = row[3] == "1";
        const errstatus expected = found ? errOK : errNotFound;
        pfStat info("|");
        long long size = -7, time = -7;
        EXPECT_EQ(pfuFS::pfuStat(path, info), expected);
        EXPECT_EQ(pfuFS::pfuGetFileSize(path, size), expected);
        EXPECT_EQ(pfuFS::pfuGetModTime(path, time), expected);
        EXPECT_EQ(pfuFS::pfuIsDir(path), directory);
        EXPECT_EQ(pfuFS::pfuIsValidFile(path), found && !directory);
        EXPECT_EQ(pfuFS::pfuIsLink(path), link);
        EXPECT_EQ(pfuFS::pfuIsExecutable(path), found);
        EXPECT_EQ(pfStat(path).initialized(), found);
        EXPECT_TRUE(found || (info.isDir() && size == -7 && time == -7)); // else untouched
    }
    fs::resize_file("d/file", 5000000000);
    const timespec times[] = {{1, 0}, {-86400, 500000000}};
    ASSERT_EQ(utimensat(AT_FDCWD, "d/file", times, 0), 0);
    long long size = 0, time = 0;
    EXPECT_EQ(pfuFS::pfuGetFileSize("d|toFile", size), errOK);
    EXPECT_EQ(pfuFS::pfuGetModTime("d|toFile", time), errOK);
    EXPECT_EQ(size, sizeof(long) == 8 ? 5000000000 : 2147483647);
    EXPECT_EQ(time, -86400);
}

TEST_F(Files, KnowTheMachine) {
    const std::uint64_t disks[][3] = {// size, free and all of its blocks: the last has 8 EiB
                                      {4096, 1000, 2000},
                                      {1000, 1ull << 33, 1ull << 34},
                                      {65536, (1ull << 46) + 12345, 1ull << 47}};
    for (const auto& [block, free, total] : disks) {
        const posix::DiskFactors factors = posix::FactorsOf(block, free, total);
        const double cluster = double(factors.sectorsPerCluster) * factors.bytesPerSector;
        const double whole = double(block) * double(total);
        EXPECT_NEAR(cluster * factors.freeClusters, double(block) * double(free), whole / 1e9);
        EXPECT_NEAR(cluster * factors.totalClusters, whole, whole / 1e9);
    }
    struct statvfs info;
    ASSERT_EQ(statvfs(".", &info), 0);
    double bytes = 0;
    for (const std::string& path :
         {folder.path.string(), folder.path.string() + ":|x", std::string(".|")}) {
        EXPECT_EQ(pfuFS::pfuGetFreeSpace(path.c_str(), bytes), errOK) << path;
        const double expected = double(info.f_frsize) * double(info.f_bavail);
        EXPECT_NEAR(bytes, expected, expected / 10) << path; // others write meanwhile
    }
    for (const char* path : {"missing", "", ":/tmp"}) {
        EXPECT_EQ(pfuFS::pfuGetFreeSpace(path, bytes), errNoDiskInfo) << path;
        EXPECT_EQ(bytes, -1.0);
    }
    dsString name;
    const passwd* const user = getpwuid(geteuid());
    EXPECT_EQ(pfuFS::pfuGetUserName(name), user != nullptr);
    EXPECT_STREQ(name, user != nullptr ? user->pw_name : "UnknownUser");
    EXPECT_TRUE(pfuFS::pfuGetComputerName(name) && !name.IsEmpty());
    EXPECT_EQ(pfuFS::pfuGetLogicalDrives(name), errOK);
    EXPECT_TRUE(name.IsEmpty());
}

TEST_F(Files, LieBelowAParentWhereAComponentEnds) {
    for (const auto& row : support::Rows( // the path, the parent, and the rest, where it is below
             "|a|b |a b;  |a|b |a| b;  |a|b |ab;  |ab |a;  |a |a -;  |a|b - |a|b;  |a||b |a |b;"
             "|a|b | a|b;  |A|b |a;  |a/b |a;  - |a untouched;  |a |a|")) {
        pfuDirPath rest("untouched");
        EXPECT_EQ(pfuFS::pfuIsParentPath(row[0].c_str(), row[1].c_str(), rest), row.size() == 3)
            << row[0] << " below " << row[1];
        EXPECT_EQ(std::string(rest), row.size() == 3 ? row[2] : "untouched");
    }
}

TEST_F(Files, OpenAsStreamsOnEitherFormOfPathOrSayWhyNot) {
    fs::create_directory("d");
    std::ofstream out;
    out.setstate(std::ios::badbit);
    EXPECT_EQ(pfuFS::pfuOpenStream("d|f", std::ios::out, out), errOK);
    out << "one\n";
    EXPECT_EQ(pfuFS::pfuOpenStream("d|f", std::ios::out, out), errInvalid); // open already
    out.close();
    std::fstream both;
    EXPECT_EQ(pfuFS::pfuOpenStream("d\\f", std::ios::in | std::ios::app, both), errOK);
    both << "two\n" << std::flush;
    std::ifstream in, failing;
    std::filebuf buffer;
    OpenFile(in, "d|f");
    EXPECT_EQ(OpenFile(buffer, "d|f", std::ios::in, 0x40), &buffer);
    std::string line;
    EXPECT_TRUE(std::getline(in, line) && line == "one" && std::getline(in, line) && line == "two");
    EXPECT_EQ(pfuFS::pfuOpenStream("d|f|x", std::ios::in, failing), errNotDirectory);
    EXPECT_EQ(pfuFS::pfuOpenStream("d|f", std::ios::trunc, failing), errInvalid);
    EXPECT_EQ(pfuFS::pfuOpenStream("", std::ios::in, failing), errNotFound);
}

TEST_F(Files, AreSharedAsTheirOpeningsAllow) {
    constexpr unsigned int reading = 0x80000000, writing = 0x40000000;
    Put("f", "contents");
    using Kind = std::pair<unsigned int, unsigned int>; // access and sharing
    const auto open = [](const Kind& kind, unsigned int disposition) {
        return uCreateFile("f", kind.first, kind.second, nullptr, disposition, 0x80, nullptr);
    };
    const auto isFree = [&](const Kind& kind) {
        void* const handle = open(kind, 3);
        const bool opened = handle != zelHandleOfDescriptor(-1);
        EXPECT_TRUE(opened || errMapError() == errShared);
        win32CloseFileHandle(handle);
        return opened;
    };
    const Kind kinds[] = {
        {reading, 1}, {reading, 0}, {writing, 0}, {writing, 1}, {reading | writing, 0}};
    for (const Kind& first : kinds)
        for (const Kind& second : kinds) {
            void* const handle = open(first, 3);
            const bool together = first == kinds[0] && second == kinds[0];
            EXPECT_EQ(isFree(second), together);
            EXPECT_EQ(IsSoInFork([&] { return isFree(second); }), together);
            EXPECT_EQ(open(kinds[2], 2), zelHandleOfDescriptor(-1)); // would make it anew
            win32CloseFileHandle(handle);
        }
    EXPECT_EQ(Get("f"), "contents");
}

TEST_F(Files, AreCopiedWholeAndNeverOntoThemselves) {
    Put("to", "");
    fs::last_write_time("to", fs::file_time_type());
    for (const std::size_t size : {0u, 1u, 4096u, 65536u, 65537u, 300000u}) {
        std::string contents(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            contents[i] = static_cast<char>(i * 7 / 3);
        Put("from", contents);
        const long before = countnew::allocations;
        EXPECT_EQ(pfuFS::pfuCopyFile("from", "to"), errOK);
        EXPECT_EQ(countnew::allocations, before);
        EXPECT_TRUE(Get("to") == contents) << size;
        EXPECT_NE(fs::last_write_time("to"), fs::file_time_type()); // new, though empty again
    }
    fs::create_hard_link("from", "same");
    fs::create_symlink("from", "link");
    fs::create_directory("d");
    Put("to", "old");
    const std::string contents = Get("from");
    for (const char* itself : {"from", ".|from", "same", "link"})
        EXPECT_EQ(pfuFS::pfuCopyFile("from", itself), errShared) << itself;
    EXPECT_TRUE(Get("from") == contents);
    EXPECT_EQ(pfuFS::pfuCopyFile("d", "to"), errIsDirectory);
    EXPECT_EQ(pfuFS::pfuCopyFile("missing", "to"), errNotFound);
    EXPECT_EQ(Get("to"), "old");
    EXPECT_EQ(pfuFS::pfuCopyFile("from", "d"), errIsDirectory);
    EXPECT_EQ(pfuFS::pfuCopyFile("from", "/dev/full"), errNoSpace);

    fs::resize_file("from", 10000000); // takes long enough for a target to vanish
    std::atomic<bool> over{false};
    std::thread vanishing([&] {
        while (!over)
            fs::remove("to");
    });
    EXPECT_EQ(pfuFS::pfuCopyFile("from", "to"), errOK);
    over = true;
    vanishing.join();
    EXPECT_EQ(fs::file_size("from"), 10000000u);
}

TEST_F(Files, LoseNothingOldToADiskThatIsFull) {
    Put("from", std::string(300000, 'x'));
    fs::create_directory("small");
    const int outcome = EndOf(Fork([] {
        if (unshare(CLONE_NEWNS) != 0 || mount("", "/", "", MS_REC | MS_PRIVATE, "") != 0 ||
            mount("", "small", "tmpfs", 0, "size=64k") != 0)
            return 1;
        EXPECT_EQ(pfuFS::pfuCopyFile("from", "small|to"), errNoSpace);
        EXPECT_EQ(Get("small/to").size(), 65536u); // what was written stays
        Put("small/to", "old");
        EXPECT_EQ(pfuFS::pfuRenameFile("from", "small|to"), errNoSpace);
        EXPECT_EQ(Get("small/to"), "old");
        EXPECT_EQ(Listing("small"), Names({"to"}));
        return HasFailure() ? 2 : 0;
    }));
    if (outcome == 1)
        GTEST_SKIP() << "no right to mount a small file system";
    EXPECT_EQ(outcome, 0);
}

TEST_F(Files, TakeAnotherNameAlsoOnAnotherFileSystem) {
    Put("a", "new");
    Put("b", "old");
    EXPECT_EQ(pfuFS::pfuRenameFile("a", ".|b"), errOK);
    EXPECT_EQ(Get("b"), "new");
    struct stat here, there;
    if (stat(".", &here) != 0 || stat("/dev/shm", &there) != 0 || here.st_dev == there.st_dev ||
        access("/dev/shm", W_OK) != 0)
        GTEST_SKIP() << "/dev/shm is not there, cannot be written, or is no other file system";
    const support::TempFolder elsewhere("/dev/shm");
    const auto move = [&](const char* name, const char* target) {
        return pfuFS::pfuRenameFile(name, (elsewhere.path / target).c_str());
    };
    const fs::path target = elsewhere.path / "b";
    Put(target, "old");
    fs::permissions("b", fs::perms(0540));
    ASSERT_EQ(std::system("touch -d @6437664000 b"), 0); // in 2174
    fs::create_symlink("nowhere", "link");
    fs::create_directory("d");
    EXPECT_EQ(move("b", "b"), errOK);
    long long time = 0;
    EXPECT_EQ(pfuFS::pfuGetModTime(target.c_str(), time), errOK);
    EXPECT_EQ(time, 6437664000);
    EXPECT_EQ(utimensat(AT_FDCWD, target.c_str(), nullptr, 0), 0); // 32 bits cannot ask else
    EXPECT_EQ(fs::status(target).permissions(), fs::perms(0540));
    EXPECT_EQ(Get(target), "new");
    EXPECT_EQ(move("link", "l"), errOK);
    EXPECT_EQ(fs::read_symlink(elsewhere.path / "l"), "nowhere");
    fs::create_directory(elsewhere.path / "c");
    Put("c", "kept");
    EXPECT_EQ(move("c", "c"), errIsDirectory);
    EXPECT_EQ(move("d", "d"), errCrossDevice);
    EXPECT_EQ(Listing("."), Names({"c", "d"})); // nothing half moved stays on either side
    EXPECT_EQ(Listing(elsewhere.path), Names({"b", "c", "l"}));
}

TEST_F(Files, AreReadFromADirectoryAsTheyAre) {
    const Names names = {"a|b", "..|x", "b\\c", "*", "\xFF\xFE", "\xC3\xA4", "line\nfeed", ".x"};
    for (const std::string& name : names)
        Put(name, "");
    EXPECT_EQ(Listing("." + std::string(1022, '/')), names); // the longest path
    for (const auto& [path, reason] :
         {std::pair("missing", errNotFound), std::pair("", errNotFound),
          std::pair(".x", errNotDirectory)}) {
        EXPECT_EQ(pfuDir::OpenDir(path), nullptr);
        EXPECT_EQ(errMapError(), reason) << path;
    }
    const std::unique_ptr<pfuDir> directory(pfuDir::OpenDir("."));
    Names seen;
    pfuDirEntry entry;
    for (; directory->Read(entry); fs::remove(static_cast<const char*>(entry)))
        seen.insert(static_cast<const char*>(entry));
    EXPECT_EQ(seen, names);
    EXPECT_FALSE(directory->Read(entry));
}

TEST_F(Files, AreMatchedThroughWhateverADerivedClassReads) {
    struct Visible : pfuDirImplementation {
        using pfuDirImplementation::pfuDirImplementation;
        bool Read(pfuDirEntry& entry) override {
            bool more;
            do
                more = pfuDirImplementation::Read(entry);
            while (more && *entry == '.');
            return more;
        }
    };
    for (const char* name :
         {"one.txt", "two.txt", ".three.txt", "\xC3\xA4.txt", "\xFF.txt", "four"})
        Put(name, "");
    const auto expand = [](const char* pattern) {
        WIN32_FIND_DATAA first;
        void* const handle = uFindFirstFile("./*", &first);
        Visible directory(first, handle);
        dsXArray<pfuDirPath*> matches(nullptr);
        const bool any = directory.ExpandPattern(pattern, matches);
        Names names;
        for (unsigned int i = 0; i < matches.GetSize(); ++i)
            names.insert(static_cast<const char*>(*std::unique_ptr<pfuDirPath>(matches[i])));
        EXPECT_EQ(any, !names.empty());
        pfuDirEntry entry;
        entry = "untouched";
        EXPECT_EQ(directory.ReadNextMatching(entry, pattern), pattern == nullptr || !*pattern);
        EXPECT_STREQ(entry, any ? "untouched" : entry);
        return names;
    };
    const support::LocaleKept kept;
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    EXPECT_EQ(expand("*.txt"), Names({"one.txt", "two.txt", "\xC3\xA4.txt", "\xFF.txt"}));
    EXPECT_EQ(expand("?.txt"), Names({"\xC3\xA4.txt", "\xFF.txt"}));
    EXPECT_EQ(expand("\xC3\xA4*"), Names({"\xC3\xA4.txt"}));
    EXPECT_EQ(expand("\xFF*"), Names({"\xFF.txt"}));
    for (const char* pattern : {"*.TXT", "", static_cast<const char*>(nullptr)})
        EXPECT_EQ(expand(pattern), Names());
}

TEST_F(Files, MatchWildcardsInTheTimeThatTheLengthsAllow) {
    const auto matches = [](const std::string& name, const std::string& pattern) {
        return Strmatch(std::wstring(name.begin(), name.end()).c_str(),
                        std::wstring(pattern.begin(), pattern.end()).c_str());
    };
    for (const auto& row : support::Rows("- - abc a?c abcbc a*bc aXbXc *X*X* * ? - ***;"
                                         "a - - ? abc a? abcb *bc ab a*b*? Abc abc ba *a*a*"))
        for (std::size_t i = 0; i < row.size(); i += 2)
            EXPECT_EQ(matches(row[i], row[i + 1]), row[0].empty()) << row[i] << " " << row[i + 1];
    EXPECT_FALSE(matches(std::string(1 << 14, 'a'), "*a*" + std::string(1 << 13, 'a') + "*a*b"));
}

} // namespace
