// SPDX-License-Identifier: MIT
//
// Threads with a function as their body, for the families that need threads.
#ifndef PLINTH_TESTS_TASKS_H
#define PLINTH_TESTS_TASKS_H

#include <chrono>
#include <functional>
#include <thread>

#include "pmtask.h"

namespace tasks {

class Task : public pmThread {
public:
    explicit Task(std::function<unsigned int()> body) : run(std::move(body)) {}
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

} // namespace tasks

#endif
