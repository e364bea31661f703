// SPDX-License-Identifier: MIT
#include <pfufs.h>
#include <pfulock.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "files/filehandle.h"
#include "support.h"

namespace {

using LockPtr = std::unique_ptr<pfuFileLock>;

LockPtr Make(const char* path = "lock") {
    return LockPtr(pfuFileLock::Construct(path));
}

/// Runs `work` in a forked process, which ends with its result.
template <typename Work>
pid_t Fork(Work work) {
    const pid_t child = fork();
    if (child == 0)
        _exit(work());
    return child;
}

int ExitCodeOf(pid_t child) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Lets one process wait for a word from another, or for its end.
struct Signal {
    Signal() { EXPECT_EQ(pipe(ends), 0); }
    ~Signal() {
        Close(0);
        Close(1);
    }
    void Give() { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void Wait() {
        char byte;
        EXPECT_EQ(read(ends[0], &byte, 1), 1);
    }
    void Close(int end) {
        if (ends[end] != -1)
            close(std::exchange(ends[end], -1));
    }
    int ends[2];
};

class FileLock : public testing::Test {
protected:
    FileLock() { std::filesystem::current_path(folder.path); }
    ~FileLock() override { EXPECT_EQ(support::OpenDescriptors(), descriptors); }

    support::TempFolder folder;
    long descriptors = support::OpenDescriptors();
};

} // namespace

TEST_F(FileLock, IsMadeByTheFirstLockAndHeldUntilReleaseOrTheEndOfItsObject) {
    LockPtr lock = Make(), other = Make(".|lock");
    EXPECT_FALSE(std::filesystem::exists("lock"));
    EXPECT_EQ(lock->Lock(), errOK);
    EXPECT_EQ(lock->Lock(), errOK);
    EXPECT_EQ(std::filesystem::file_size("lock"), 0u);
    EXPECT_EQ(other->Release(), errShared);
    EXPECT_FALSE(files::FileHandle(files::OpenSource("lock")).IsOpen());
    std::fclose(std::fopen("lock", "r+")); // any other opening loses nothing
    EXPECT_EQ(other->Release(), errShared);
    EXPECT_EQ(lock->Release(), errOK);
    EXPECT_EQ(other->Lock(), errOK);
    EXPECT_EQ(lock->Release(), errShared);
    other.reset();
    EXPECT_EQ(lock->Release(), errOK); // holds nothing: opens and closes
    EXPECT_EQ(std::filesystem::file_size("lock"), 0u);
    std::filesystem::resize_file("lock", 12);
    EXPECT_EQ(lock->Lock(), errOK);
    EXPECT_EQ(lock->Release(), errOK);
    EXPECT_EQ(std::filesystem::file_size("lock"), 12u);
}

TEST_F(FileLock, WhatWaitingCannotCureEndsTheWait) {
    std::filesystem::create_directories("folder/closed");
    std::fclose(std::fopen("file", "w"));
    std::filesystem::create_symlink("ring", "ring");
    for (const auto& [path, reason] :
         std::vector<std::pair<std::string, errstatus>>{{"missing|lock", errNotFound},
                                                        {"", errNotFound},
                                                        {"file|lock", errNotDirectory},
                                                        {"folder", errIsDirectory},
                                                        {"ring", errTooManyLinks},
                                                        {std::string(300, 'n'), errNameTooLong}}) {
        EXPECT_EQ(Make(path.c_str())->Lock(), reason) << path;
        EXPECT_EQ(Make(path.c_str())->Release(), reason) << path;
    }
    chmod("folder/closed", 0500);
    chmod(folder.path.c_str(), 0755);
    EXPECT_EQ(ExitCodeOf(Fork([] {
                  if (geteuid() == 0 && seteuid(65534) != 0)
                      return 1;
                  return Make("folder/closed/lock")->Lock() == errNoAccess ? 0 : 2;
              })),
              0);
}

TEST_F(FileLock, KeepsAWaiterUntilItsNextAttemptAfterTheRelease) {
    LockPtr lock = Make();
    ASSERT_EQ(lock->Lock(), errOK);
    std::atomic<bool> trying = false, released = false;
    std::thread waiter([&] {
        const LockPtr mine = Make();
        trying = true;
        EXPECT_EQ(mine->Lock(), errOK);
        EXPECT_TRUE(released);
        EXPECT_EQ(mine->Release(), errOK);
    });
    while (!trying)
        std::this_thread::yield();
    for (int i = 0; i < 2000; ++i) // openings in between do not let it in
        EXPECT_EQ(Make()->Release(), errShared);
    released = true;
    EXPECT_EQ(lock->Release(), errOK);
    const long long waited = support::MillisecondsOf([&] { waiter.join(); });
    EXPECT_LT(waited, 3000);
}

TEST_F(FileLock, OfAKilledProcessIsFreeAtOnceWhateverItHasLaunched) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    Signal locked, input;
    const pid_t holder = Fork([&] {
        const LockPtr lock = Make();
        if (lock->Lock() != errOK)
            return 1;
        // A child that goes on until its input ends.
        input.Close(1);
        dup2(input.ends[0], 0);
        char cat[] = "cat";
        char* arguments[] = {cat, nullptr};
        pid_t child;
        if (posix_spawnp(&child, cat, nullptr, nullptr, arguments, nullptr) != 0)
            return 2;
        locked.Give();
        pause();
        return 3;
    });
    locked.Wait();
    const LockPtr lock = Make();
    EXPECT_EQ(lock->Release(), errShared);
    kill(holder, SIGKILL);
    EXPECT_EQ(ExitCodeOf(holder), -1);
    EXPECT_LT(support::MillisecondsOf([&] { EXPECT_EQ(lock->Lock(), errOK); }), 900);
    EXPECT_EQ(lock->Release(), errOK);
    input.Close(1);
    int status = -1;
    EXPECT_GT(waitpid(-1, &status, 0), 0);
    EXPECT_EQ(status, 0);
}

TEST_F(FileLock, IsNeitherHeldNorFreedByAForkedCopy) {
    const LockPtr lock = Make(), other = Make();
    ASSERT_EQ(lock->Lock(), errOK);
    EXPECT_EQ(ExitCodeOf(Fork([&] {
                  if (lock->Release() != errShared)
                      return 1;
                  return other->Release() == errShared ? 0 : 2;
              })),
              0);
    EXPECT_EQ(other->Release(), errShared);
    Signal end;
    const pid_t idle = Fork([&] {
        end.Close(1);
        end.Wait();
        const LockPtr mine = Make();
        if (mine->Lock() != errOK) // the copies have let nobody down
            return 1;
        return mine->Release() == errOK ? 0 : 2;
    });
    EXPECT_EQ(lock->Release(), errOK);
    EXPECT_EQ(other->Lock(), errOK); // with the copy still there
    EXPECT_EQ(lock->Release(), errShared);
    EXPECT_EQ(other->Release(), errOK);
    end.Give();
    EXPECT_EQ(ExitCodeOf(idle), 0);
}

TEST_F(FileLock, IsNeverHeldTwiceByManyProcesses) {
    std::vector<pid_t> processes;
    for (int i = 0; i < 8; ++i)
        processes.push_back(Fork([] {
            const LockPtr lock = Make();
            for (int round = 0; round < 2; ++round) {
                if (lock->Lock() != errOK)
                    return 1;
                for (int step = 0; step < 100; ++step) // only one can have made the folder
                    if (mkdir("held", 0700) != 0 || rmdir("held") != 0)
                        return 2;
                if (lock->Release() != errOK)
                    return 3;
            }
            return 0;
        }));
    for (const pid_t process : processes)
        EXPECT_EQ(ExitCodeOf(process), 0);
}

TEST_F(FileLock, LockFileBufTellsFailureByTrue) {
    lockFileBuf buffer;
    EXPECT_TRUE(buffer.Open("missing|file", std::ios::out, 0));
    EXPECT_FALSE(buffer.Open(".|file", std::ios::out | std::ios::in | std::ios::trunc, 0));
    EXPECT_TRUE(buffer.Open("file", std::ios::in, 0)); // it is open
    EXPECT_EQ(buffer.sputn("abc", 3), 3);
    EXPECT_FALSE(buffer.Close());
    EXPECT_TRUE(buffer.Close());
    EXPECT_EQ(std::filesystem::file_size("file"), 3u);
}
