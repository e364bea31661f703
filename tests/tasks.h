// SPDX-License-Identifier: MIT
//
// Threads with a function as their body, and the conditions that they are tested under.
#ifndef PLINTH_TESTS_TASKS_H
#define PLINTH_TESTS_TASKS_H

#include <cstdint>
#include <fstream>
#include <functional>
#include <optional>

#include <gtest/gtest.h>
#include <pthread.h>

#include "outside/win32/threads.h"
#include "pmtask.h"
#include "testing/hostlistener.h"
#include "tests/support.h"

namespace tasks {

// The thread sanitizer holds signals back until the next call, and a handler that is interrupted
// there may leave its thread with all of them blocked.
#if defined(__SANITIZE_THREAD__)
constexpr bool signalsInterruptLoops = false;
#else
constexpr bool signalsInterruptLoops = true;
#endif

class Task : public pmThread {
public:
    explicit Task(std::function<unsigned int()> body) : run(std::move(body)) {
        hostpicture::Announce(hostpicture::NameOf(zelTerminateSignal())); // somebody may kill it
    }
    unsigned int ThreadRun() override { return run(); }
    using pmThread::GetHandle;

private:
    std::function<unsigned int()> run;
};

/// An event on the end of a thread.
struct EndOf : zelEvent {
    explicit EndOf(void* thread) : zelEvent(new zelMOEvent(thread, 2)) {}
    int GetKind() override { return 0; }
    void* GetInfo() override { return this; }
};

template <typename Condition>
bool Eventually(Condition condition) {
    for (const auto start = std::chrono::steady_clock::now(); !condition();
         std::this_thread::yield())
        if (std::chrono::steady_clock::now() - start > std::chrono::seconds(20))
            return false;
    return true;
}

/// Whether a thread sleeps in the system, as whoever waits must.
inline bool Sleeps(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string number, name, state;
    return file >> number >> name >> state && state == "S";
}

inline long Threads() {
    using Walk = std::filesystem::directory_iterator;
    return std::distance(Walk("/proc/self/task"), Walk());
}

/// Runs `call` while no thread can be started: the default stack is too large for any.
template <typename Call>
void WithHopelessStacks(Call call) {
    pthread_attr_t former, hopeless;
    pthread_attr_init(&hopeless);
    pthread_attr_setstacksize(&hopeless, SIZE_MAX / 4 * 3);
    pthread_getattr_default_np(&former);
    pthread_setattr_default_np(&hopeless);
    call();
    pthread_setattr_default_np(&former);
}

/// Rough: every thread is interrupted all the time, and 37 descriptors are to be had.
class Weather : public testing::TestWithParam<bool> {
protected:
    Weather() {
        std::thread([] {}).join(); // a sanitizer may start one of its own beside the first
        if (GetParam()) {
            limit.emplace(37);
            storm.emplace(true);
        }
    }

private:
    std::optional<support::DescriptorLimit> limit;
    std::optional<support::SignalStorm> storm;
};

inline std::string NameOf(const testing::TestParamInfo<bool>& weather) {
    return weather.param ? "Rough" : "Calm";
}

} // namespace tasks

#endif
