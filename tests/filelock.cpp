// SPDX-License-Identifier: MIT
#include <pfulock.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files/filehandle.h"
#include "tests/infolder.h"

namespace {

using LockPtr = std::unique_ptr<pfuFileLock>;

LockPtr Make(const char* path = "lock") {
    return LockPtr(pfuFileLock::Construct(path));
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
        while (read(ends[0], &byte, 1) != 1)
            ASSERT_EQ(errno, EINTR);
    }
    int ends[2];
};

class FileLock : public InFolder {
protected:
    LockPtr lock = Make(), other = Make(".|lock");
};

TEST_F(FileLock, IsHeldFromLockToReleaseOrTheEndOfItsObject) {
    EXPECT_FALSE(fs::exists("lock"));
    EXPECT_EQ(lock->Lock(), errOK);
    EXPECT_EQ(lock->Lock(), errOK);
    EXPECT_EQ(fs::file_size("lock"), 0u);
    EXPECT_EQ(other->Release(), errShared);
    EXPECT_FALSE(files::FileHandle(files::OpenSource("lock")).IsOpen());
    Put("lock", "contents"); // any other opening loses nothing
    EXPECT_EQ(other->Release(), errShared);
    EXPECT_EQ(lock->Release(), errOK);
    EXPECT_EQ(other->Lock(), errOK);
    EXPECT_EQ(lock->Release(), errShared);
    other.reset();
    EXPECT_EQ(lock->Release(), errOK); // holds nothing: opens and closes
    EXPECT_EQ(fs::file_size("lock"), 8u);
}

TEST_F(FileLock, WhatWaitingCannotCureEndsTheWait) {
    fs::create_directories("folder/closed");
    Put("file");
    fs::create_symlink("ring", "ring");
    mkfifo("pipe", 0600);
    const std::pair<std::string, errstatus> rows[] = {
        {"missing|lock", errNotFound},  {std::string(1024, 'n'), errNotFound},
        {"file|lock", errNotDirectory}, {"folder", errIsDirectory},
        {"ring", errTooManyLinks},      {std::string(300, 'n'), errNameTooLong},
        {"pipe", errNotSupported},      {"|dev|null", errNotSupported},
    };
    for (const auto& [path, reason] : rows) {
        EXPECT_EQ(Make(path.c_str())->Lock(), reason) << path;
        EXPECT_EQ(Make(path.c_str())->Release(), reason) << path;
    }
    chmod("folder/closed", 0500);
    chmod(".", 0755);
    EXPECT_TRUE(IsSoInFork([] { return Make("folder/closed/lock")->Lock() == errNoAccess; }, true));
}

TEST_F(FileLock, KeepsAWaiterUntilItsNextAttemptAfterTheRelease) {
    ASSERT_EQ(lock->Lock(), errOK);
    std::atomic<bool> released = false;
    std::thread waiter([&] {
        EXPECT_EQ(other->Lock(), errOK);
        EXPECT_TRUE(released);
    });
    for (int i = 0; i < 2000; ++i) // attempts in between do not let it in
        EXPECT_EQ(Make()->Release(), errShared);
    released = true;
    EXPECT_EQ(lock->Release(), errOK);
    EXPECT_LT(support::MillisecondsOf([&] { waiter.join(); }), 3000);
    other.reset();
}

TEST_F(FileLock, OfAKilledProcessIsFreeAtOnceWhateverItHasLaunchedOrForked) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    Signal locked, input;
    const pid_t holder = Fork([&] {
        close(input.ends[1]);
        if (lock->Lock() != errOK || dup2(input.ends[0], 0) != 0 ||
            std::system("cat <&0 &") != 0) // goes on until its input ends
            return 1;
        Fork([&] {
            locked.Give();
            char byte; // so does the copy
            while (read(0, &byte, 1) < 0)
                continue;
            return 0;
        });
        for (;;)
            pause();
        return 1;
    });
    locked.Wait();
    EXPECT_EQ(lock->Release(), errShared);
    kill(holder, SIGKILL);
    EXPECT_EQ(EndOf(holder), -1);
    EXPECT_LT(support::MillisecondsOf([&] { EXPECT_EQ(lock->Lock(), errOK); }), 900);
    lock.reset();
    close(std::exchange(input.ends[1], -1));
    EXPECT_EQ(EndOf(-1), 0);
    EXPECT_EQ(EndOf(-1), 0);
}

TEST_F(FileLock, IsNeitherHeldNorFreedByAForkedCopy) {
    ASSERT_EQ(lock->Lock(), errOK);
    const auto holdsNothing = [&] {
        const bool held = lock->Release() == errShared;
        const int newcomer = open("/dev/null", O_RDONLY); // with the number that the lock had
        lock.reset();
        return held && close(newcomer) == 0 && other->Release() == errShared;
    };
    EXPECT_TRUE(IsSoInFork(holdsNothing));
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

/// PLINTH_LOCK_SECONDS makes it longer.
TEST_F(FileLock, IsNeverHeldTwiceByManyProcesses) {
    const char* const seconds = std::getenv("PLINTH_LOCK_SECONDS");
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(seconds != nullptr ? atoi(seconds) : 1);
    auto* const holders = static_cast<std::atomic<int>*>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    pid_t processes[8];
    for (pid_t& process : processes)
        process = Fork([&] {
            // One after the other, or they would also wake up and collide together every second.
            usleep(static_cast<unsigned int>(&process - processes) * 3000);
            bool alone = true;
            do {
                alone = lock->Lock() == errOK && ++*holders == 1 && alone;
                usleep(10);
                alone = --*holders == 0 && lock->Release() == errOK && alone;
            } while (Clock::now() < end);
            return alone ? 0 : 1;
        });
    for (const pid_t process : processes)
        EXPECT_EQ(EndOf(process), 0);
    munmap(holders, 4096);
}

TEST_F(FileLock, LockFileBufTellsFailureByTrue) {
    lockFileBuf buffer;
    EXPECT_TRUE(buffer.Open("missing|file", std::ios::out, 0));
    EXPECT_FALSE(buffer.Open(".|file", std::ios::out | std::ios::in | std::ios::trunc, 0));
    EXPECT_TRUE(buffer.Open("file", std::ios::in, 0)); // it is open
    EXPECT_EQ(buffer.sputn("abc", 3), 3);
    EXPECT_FALSE(buffer.Close());
    EXPECT_TRUE(buffer.Close());
    EXPECT_EQ(fs::file_size("file"), 3u);
}

} // namespace
