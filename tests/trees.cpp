// SPDX-License-Identifier: MIT
#include <pfufs.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>

#include "outside/varnholt/treewalk.h"
#include "tests/infolder.h"

namespace {

/// Works beside a folder that nothing may touch.
class Trees : public InFolder {
protected:
    Trees() {
        fs::create_directory("outside");
        Put("outside/kept");
    }
    ~Trees() override { EXPECT_TRUE(fs::exists("outside/kept")); }
};

/// Makes a chain of `depth` folders, with a file at the end.
void MakeChain(std::string path, int depth) {
    while (--depth > 0)
        path += "/d";
    fs::create_directories(path);
    std::ofstream stream(path + "/en");
}

TEST_F(Trees, AreMadeAlongAPath) {
    Put("file");
    fs::create_directory_symlink("outside", "link");
    fs::create_symlink("nowhere", "dangling");
    const std::string absolute = folder.path.string() + "||x|y";
    const std::string longest = std::string("l") + std::string(1021, '/') + "m";
    for (const auto& row :
         support::Rows("a|b|c a/b/c;  a|b|c a/b/c;  a\\b/d||e| a/b/d/e;  link|in outside/in;  n| n;"
                       "a|.|f|..|g a/g;  - .;" +
                       absolute + " x/y;" + longest + " l/m")) {
        EXPECT_EQ(pfuFS::pfuMakeDirRec(row[0].c_str()), errOK) << row[0];
        EXPECT_TRUE(fs::is_directory(row[1])) << row[1];
    }
    EXPECT_EQ(pfuFS::pfuMakeDirRec(nullptr), errOK);
    for (const char* path : {"file", "file|x", "dangling|x", "a|new|..|..|file"})
        EXPECT_EQ(pfuFS::pfuMakeDirRec(path), errFileInPath) << path;
    EXPECT_TRUE(fs::is_directory("a/new")); // what was made stays
    EXPECT_EQ(pfuFS::pfuMakeDirRec("|proc|x"), errNotFound);
    EXPECT_EQ(pfuFS::pfuMakeDirRec((longest + "mm").c_str()), errNameTooLong);
}

TEST_F(Trees, AreMadeBelowABase) {
    Put("file");
    const pfuDirPath base(folder.path.c_str());
    for (int twice = 0; twice < 2; ++twice)
        EXPECT_EQ(pfuFS::pfuMakeDirRec(base, "a|b\\c/d|"), errOK);
    EXPECT_TRUE(fs::is_directory("a/b/c/d"));
    EXPECT_EQ(pfuFS::pfuMakeDirRec(base, "|a||e"), errOK);
    EXPECT_TRUE(fs::is_directory("a/e"));
    EXPECT_EQ(pfuFS::pfuMakeDirRec("", pfuDirPath(base, "|r|s")), errOK);
    EXPECT_TRUE(fs::is_directory("r/s"));
    const std::string slashes(1024, '/'), name(200, 'n');
    const pfuDirPath tooLong(("." + slashes).c_str()), deep(("." + slashes.substr(124)).c_str());
    for (const auto& [below, path, outcome] :
         {std::tuple<pfuDirPath, pfuDirPath, errstatus>("missing", "", errOK),
          {"missing", "x", errNotFound}, // the base is never made
          {"", "|proc|x", errNotFound},
          {"", "\\y", errNotFound},
          {base, "a|..|file|x", errExists},
          {tooLong, "y", errNameTooLong},
          {base, tooLong, errNameTooLong},
          {deep, ("z|" + name).c_str(), errNameTooLong}})
        EXPECT_EQ(pfuFS::pfuMakeDirRec(below, path), outcome) << below << " and " << path;
    EXPECT_TRUE(fs::is_directory("z") && !fs::exists("y") && !fs::exists("proc"));
}

TEST_F(Trees, AreRemovedWithoutLeavingThem) {
    fs::create_directories("t/empty/deeper");
    fs::create_directory("t/..|outside");
    for (const char* name : {"t/file", "t/..|outside|kept", "t/\xFF", "t/a|b", "t/..|outside/x"})
        Put(name);
    fs::create_directory_symlink("../outside", "t/link");
    fs::create_symlink("nowhere", "t/dangling");
    fs::create_directory_symlink("t", "toTree");
    for (const char* path : {"toTree", "toTree|", "t|file"})
        EXPECT_EQ(pfuFS::pfuRemoveDirRec(path), errNotDirectory) << path;
    for (const char* path : {"missing", ""})
        EXPECT_EQ(pfuFS::pfuRemoveDirRec(path), errNotFound) << path;
    EXPECT_TRUE(fs::exists("t/file"));
    EXPECT_EQ(pfuFS::pfuRemoveDirRec("t|"), errOK);
    EXPECT_FALSE(fs::exists("t"));
}

TEST_F(Trees, AreRemovedAtAnyDepthThatAPathCanHave) {
    MakeChain("t", 510); // a longer path cannot be joined
    {
        const support::DescriptorLimit few(3);
        EXPECT_EQ(pfuFS::pfuRemoveDirRec("t"), errOK);
    }
    EXPECT_FALSE(fs::exists("t"));
    MakeChain("t", 1000);
    fs::create_directory("t/d/e");
    EXPECT_EQ(pfuFS::pfuRemoveDirRec("t"), errNameTooLong);
    EXPECT_TRUE(fs::exists("t/d/d/d"));
}

TEST_F(Trees, StayFromWhatCannotBeReadOn) {
    fs::permissions(".", fs::perms(0777));
    fs::permissions("outside", fs::perms(0555));
    const auto asExpected = [] {
        fs::create_directories("t/closed/in");
        fs::permissions("t/closed", fs::perms(0300));
        const bool stays = pfuFS::pfuRemoveDirRec("t") == errNoAccess &&
                           fs::exists("t/closed/in") &&
                           pfuFS::pfuRemoveDirRec("outside") == errNoAccess &&
                           pfuFS::pfuMakeDirRec("outside|x|y") == errNoAccess;
        fs::permissions("t/closed", fs::perms(0700));
        return stays;
    };
    EXPECT_TRUE(IsSoInFork(asExpected, true));
    fs::permissions("outside", fs::perms(0755));
}

/// What stands at a name when the walk goes in, and where a folder is when it comes back up.
TEST_F(Trees, AreWalkedThroughFoldersAlone) {
    fs::create_directories("t/d");
    const long descriptors = support::OpenDescriptors();
    zelTreeWalk walk;
    errno = E2BIG; // stays, since none of the calls that give true may touch it
    bool isDirectory = false;
    const char* name = "";
    ASSERT_TRUE(walk.Open("t") && walk.Next(name, isDirectory) && isDirectory && *name == 'd');
    EXPECT_TRUE(walk.Next(name, isDirectory) && name == nullptr && errno == E2BIG);
    fs::remove("t/d");
    fs::create_directory_symlink("../outside", "t/d");
    EXPECT_FALSE(walk.Enter("d"));
    EXPECT_EQ(errMapError(), errNotDirectory);
    fs::remove("t/d");

    fs::path deep = "t";
    for (int level = 0; level < 40; ++level) {
        deep /= "d";
        fs::create_directory(deep);
        ASSERT_TRUE(walk.Enter("d"));
        EXPECT_LE(support::OpenDescriptors(), descriptors + 16);
    }
    fs::rename("t/d/d", "outside/moved"); // above what is still open
    for (int level = 40; level > 2; --level)
        ASSERT_TRUE(walk.Leave());
    EXPECT_FALSE(walk.Leave());
    EXPECT_EQ(errMapError(), errNotFound);
}

TEST_F(Trees, AreRemovedWhileSomebodySwapsAFolderForALink) {
    std::atomic<bool> over{false};
    std::thread swapping([&] {
        while (!over)
            renameat2(AT_FDCWD, "t/d", AT_FDCWD, "link", RENAME_EXCHANGE);
    });
    for (int round = 0; round < 100; ++round) {
        fs::create_directory("t");
        std::error_code any; // the two may have been left either way round
        fs::remove("link", any);
        fs::create_directory_symlink(folder.path / "outside", "link", any);
        fs::create_directory("t/d", any);
        for (int file = 0; file < 10; ++file)
            Put("t/f" + std::to_string(file));
        while (pfuFS::pfuRemoveDirRec("t") != errOK)
            if (!fs::exists("t"))
                break;
    }
    over = true;
    swapping.join();
}

} // namespace
