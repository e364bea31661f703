// SPDX-License-Identifier: MIT
#include <pfulock.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <thread>
#include <utility>

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

/// What the process ends with, -1 if by a signal.
int EndOf(pid_t child) {
    int status = -1;
    EXPECT_GT(waitpid(child, &status, 0), 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Lets one process wait for a word from another.
struct Signal {
    Signal() { EXPECT_EQ(pipe(ends), 0); }
    ~Signal() {
        close(ends[0]);
        close(ends[1]);
    }
    void Give() { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void Wait() {
        char byte;
        EXPECT_EQ(read(ends[0], &byte, 1), 1);
    }
    int ends[2];
};

class FileLock : public testing::Test {
protected:
    FileLock() { std::filesystem::current_path(folder.path); }
    ~FileLock() override { EXPECT_EQ(support::OpenDescriptors(), descriptors); }

    support::TempFolder folder;
    long descriptors = support::OpenDescriptors();
    LockPtr lock = Make(), other = Make(".|lock");
};

} // namespace

TEST_F(FileLock, IsHeldFromLockToReleaseOrTheEndOfItsObject) {
    EXPECT_FALSE(std::filesystem::exists("lock"));
    EXPECT_EQ(lock->Lock(), errOK);
    EXPECT_EQ(lock->Lock(), errOK);
    EXPECT_EQ(std::filesystem::file_size("lock"), 0u);
    EXPECT_EQ(other->Release(), errShared);
    EXPECT_FALSE(files::FileHandle(files::OpenSource("lock")).IsOpen());
    std::ofstream("lock") << "contents"; // any other opening loses nothing
    EXPECT_EQ(other->Release(), errShared);
    EXPECT_EQ(lock->Release(), errOK);
    EXPECT_EQ(other->Lock(), errOK);
    EXPECT_EQ(lock->Release(), errShared);
    other.reset();
    EXPECT_EQ(lock->Release(), errOK); // holds nothing: opens and closes
    EXPECT_EQ(std::filesystem::file_size("lock"), 8u);
}

TEST_F(FileLock, WhatWaitingCannotCureEndsTheWait) {
    std::filesystem::create_directories("folder/closed");
    std::ofstream("file").close();
    std::filesystem::create_symlink("ring", "ring");
    const std::pair<std::string, errstatus> rows[] = {
        {"missing|lock", errNotFound},  {"", errNotFound},
        {"file|lock", errNotDirectory}, {"folder", errIsDirectory},
        {"ring", errTooManyLinks},      {std::string(300, 'n'), errNameTooLong},
    };
    for (const auto& [path, reason] : rows) {
        EXPECT_EQ(Make(path.c_str())->Lock(), reason) << path;
        EXPECT_EQ(Make(path.c_str())->Release(), reason) << path;
    }
    chmod("folder/closed", 0500);
    chmod(".", 0755);
    EXPECT_EQ(EndOf(Fork([] {
                  if (geteuid() == 0 && seteuid(65534) != 0)
                      return 1;
                  return Make("folder/closed/lock")->Lock() == errNoAccess ? 0 : 2;
              })),
              0);
}

TEST_F(FileLock, KeepsAWaiterUntilItsNextAttemptAfterTheRelease) {
    ASSERT_EQ(lock->Lock(), errOK);
    std::atomic<bool> trying = false, released = false;
    std::thread waiter([&] {
        trying = true;
        EXPECT_EQ(other->Lock(), errOK);
        EXPECT_TRUE(released);
    });
    while (!trying)
        std::this_thread::yield();
    for (int i = 0; i < 2000; ++i) // attempts in between do not let it in
        EXPECT_EQ(Make()->Release(), errShared);
    released = true;
    EXPECT_EQ(lock->Release(), errOK);
    EXPECT_LT(support::MillisecondsOf([&] { waiter.join(); }), 3000);
    other.reset();
}

TEST_F(FileLock, OfAKilledProcessIsFreeAtOnceWhateverItHasLaunched) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    Signal locked, input;
    const pid_t holder = Fork([&] {
        char cat[] = "cat"; // goes on until its input ends
        char* arguments[] = {cat, nullptr};
        pid_t child;
        close(input.ends[1]);
        if (lock->Lock() != errOK || dup2(input.ends[0], 0) != 0 ||
            posix_spawnp(&child, cat, nullptr, nullptr, arguments, nullptr) != 0)
            return 1;
        locked.Give();
        return pause();
    });
    locked.Wait();
    EXPECT_EQ(lock->Release(), errShared);
    kill(holder, SIGKILL);
    EXPECT_EQ(EndOf(holder), -1);
    EXPECT_LT(support::MillisecondsOf([&] { EXPECT_EQ(lock->Lock(), errOK); }), 900);
    lock.reset();
    close(std::exchange(input.ends[1], -1));
    EXPECT_EQ(EndOf(-1), 0);
}

TEST_F(FileLock, IsNeitherHeldNorFreedByAForkedCopy) {
    ASSERT_EQ(lock->Lock(), errOK);
    EXPECT_EQ(EndOf(Fork([&] { return lock->Release() == errShared ? 0 : 1; })), 0);
    EXPECT_EQ(EndOf(Fork([&] {
                  lock.reset();
                  return other->Release() == errShared ? 0 : 1;
              })),
              0);
    EXPECT_EQ(other->Release(), errShared);
    Signal end;
    const pid_t idle = Fork([&] {
        end.Wait();
        return lock->Lock() == errOK ? 0 : 1;
    });
    EXPECT_EQ(lock->Release(), errOK);
    EXPECT_EQ(other->Lock(), errOK); // with the copy still there
    EXPECT_EQ(other->Release(), errOK);
    end.Give();
    EXPECT_EQ(EndOf(idle), 0);
}

TEST_F(FileLock, IsNeverHeldTwiceByManyProcesses) {
    pid_t processes[8];
    for (pid_t& process : processes)
        process = Fork([&] {
            for (int round = 0; round < 2; ++round) {
                bool alone = lock->Lock() == errOK;
                for (int step = 0; step < 100; ++step) // only one can have made the folder
                    alone = mkdir("held", 0700) == 0 && rmdir("held") == 0 && alone;
                if (lock->Release() != errOK || !alone)
                    return 1;
            }
            return 0;
        });
    for (const pid_t process : processes)
        EXPECT_EQ(EndOf(process), 0);
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
