// SPDX-License-Identifier: MIT
//
// Threads with a function as their body, for the families that need threads.
#ifndef PLINTH_TESTS_TASKS_H
#define PLINTH_TESTS_TASKS_H

#include <chrono>
#include <functional>
#include <thread>

#include <pthread.h>

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

/// Runs `call` while no thread can be started: the default stack is too large for any.
template <typename Call>
void WithHopelessStacks(Call call) {
    pthread_attr_t former, hopeless;
    pthread_attr_init(&hopeless);
    pthread_attr_setstacksize(&hopeless, std::size_t{1} << (sizeof(void*) == 8 ? 46 : 30));
    pthread_getattr_default_np(&former);
    pthread_setattr_default_np(&hopeless);
    call();
    pthread_setattr_default_np(&former);
}

} // namespace tasks

#endif
