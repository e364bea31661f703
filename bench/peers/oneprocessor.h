// SPDX-License-Identifier: MIT
#ifndef PLINTH_BENCH_PEERS_ONEPROCESSOR_H
#define PLINTH_BENCH_PEERS_ONEPROCESSOR_H

#include <cstdlib>

#include <sched.h>

/// As long as one that is wanted lives, the calling thread and those that it starts run on one
/// processor. For threads that take turns: on two, most of what is measured is how a processor
/// wakes up from its sleep, and that changes from one repetition to the next.
class OneProcessor {
public:
    explicit OneProcessor(bool wanted = true) {
        if (sched_getaffinity(0, sizeof before, &before) != 0)
            std::abort();
        cpu_set_t now = before;
        int last = CPU_SETSIZE - 1; // the first ones have the interrupts
        while (!CPU_ISSET(last, &before))
            --last;
        if (wanted) {
            CPU_ZERO(&now);
            CPU_SET(last, &now);
        }
        Set(now);
    }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;
    ~OneProcessor() { Set(before); }

private:
    static void Set(const cpu_set_t& wanted) {
        if (sched_setaffinity(0, sizeof wanted, &wanted) != 0)
            std::abort();
    }
    cpu_set_t before;
};

#endif
