// SPDX-License-Identifier: MIT
//
// races [COUNT [SEED]]: waits, kills and polls that meet on COUNT children and COUNT threads, 1000
// by default. Every end is told to everybody who asks, the same way, by every event once; and then
// nothing is left of it all. For a build with the thread sanitizer.
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <asynccall.h>
#include <execproc.h>
#include <outside/varnholt/process.h>
#include <outside/varnholt/threads.h>
#include <outside/win32/handles.h>
#include <outside/win32/threads.h>
#include <pmtask.h>

#include "tests/support.h"

namespace {

constexpr unsigned int killCode = 77;
unsigned int seed = 1;

void Require(bool holds, const std::string& what) {
    if (holds)
        return;
    std::fprintf(stderr, "races: wrong: %s (seed %u)\n", what.c_str(), seed);
    _exit(1);
}

/// Runs all of these at once, and waits for them.
void AtOnce(const std::vector<std::function<void(std::mt19937&)>>& bodies) {
    std::vector<std::thread> threads;
    std::atomic<unsigned int> ready{0};
    for (unsigned int i = 0; i < bodies.size(); ++i)
        threads.emplace_back([&, i] {
            std::mt19937 random(seed * 1000 + i);
            ++ready;
            while (ready < bodies.size())
                std::this_thread::yield();
            bodies[i](random);
        });
    for (std::thread& thread : threads)
        thread.join();
}

std::vector<unsigned int> Shuffled(unsigned int count, std::mt19937& random) {
    std::vector<unsigned int> order(count);
    for (unsigned int i = 0; i < count; ++i)
        order[i] = i;
    std::shuffle(order.begin(), order.end(), random);
    return order;
}

/// What is there of the process itself. Threads and children take a moment to go altogether.
struct Picture {
    long descriptors = support::OpenDescriptors();
    long threads = Entries("/proc/self/task");

    static long Entries(const char* folder) {
        using Walk = std::filesystem::directory_iterator;
        return std::distance(Walk(folder), Walk());
    }
    void RequireSame(const std::string& when) const {
        for (int tries = 0; tries < 2000; ++tries) {
            const Picture now;
            if (now.descriptors == descriptors && now.threads == threads)
                break;
            poll(nullptr, 0, 5);
        }
        const Picture now;
        Require(now.descriptors == descriptors, when + ": descriptors " +
                                                    std::to_string(now.descriptors) + " after " +
                                                    std::to_string(descriptors));
        Require(now.threads == threads, when + ": threads " + std::to_string(now.threads) +
                                            " after " + std::to_string(threads));
        siginfo_t info{};
        Require(waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD,
                when + ": a child is left");
    }
};

/// The one code that everybody is told.
class Told {
public:
    /// True for the first one that is told.
    bool Set(long code, const std::string& what) {
        long former = none;
        const bool first = told.compare_exchange_strong(former, code);
        Require(first || former == code,
                what + " was told " + std::to_string(former) + " and " + std::to_string(code));
        return first;
    }
    long Get() const { return told; }

private:
    static constexpr long none = -1000;
    std::atomic<long> told{none};
};

/// Waits for all of the events of one thread: each fires once, and stays signalled.
void FollowAll(std::vector<std::unique_ptr<zelEvent>> events, const char* what) {
    std::vector<zelEvent*> waiting;
    for (const auto& event : events)
        waiting.push_back(event.get());
    for (std::size_t left = waiting.size(); left != 0; --left) {
        const int at =
            zelEvent::WaitAny(waiting.data(), static_cast<unsigned int>(waiting.size()), 60000);
        Require(at >= 0, std::string(what) + ": an end that no event told, " +
                             std::to_string(left) + " left");
        Require(waiting[static_cast<std::size_t>(at)] != nullptr, "an event that was done with");
        waiting[static_cast<std::size_t>(at)] = nullptr;
    }
    for (const auto& event : events)
        Require(event->IsSignaled(), std::string(what) + ": an event that forgets");
}

// --- children, by record: any thread may ask about one while others wait for it ---------------

struct Child {
    void* process = nullptr;
    unsigned long id = 0;
    long natural = 0; ///< the code that it ends with by itself
    bool ends = true; ///< by itself
    Told told;
    std::atomic<bool> killed{false}, interrupted{false};
};

void Launch(Child& child, unsigned int number) {
    static const char* const commands[] = {"true", "sh -c 'exit 5'", "sleep 0.05", "sleep 1000"};
    static constexpr long codes[] = {0, 5, 0, 0};
    void* const none = zelHandleOfDescriptor(-1);
    child.natural = codes[number % 4];
    child.ends = number % 4 != 3;
    Require(Process_Launch(&child.process, &child.id, commands[number % 4], nullptr, none, none,
                           none, 1 + static_cast<int>(number / 4 % 2)),
            "a launch");
}

void RaceOnChildren(unsigned int count) {
    const Picture before;
    std::vector<Child> children(count);
    std::atomic<unsigned int> left{count};
    std::vector<std::function<void(std::mt19937&)>> bodies;
    constexpr unsigned int launchers = 4;
    std::vector<std::atomic<bool>> ready(count);
    for (unsigned int part = 0; part < launchers; ++part)
        bodies.emplace_back([&, part](std::mt19937&) {
            for (unsigned int i = part; i < count; i += launchers) {
                Launch(children[i], i);
                ready[i] = true;
            }
        });
    const auto launched = [&](unsigned int i) {
        while (!ready[i])
            std::this_thread::yield();
    };
    const auto note = [&](Child& child, long code, const char* how) {
        if (child.told.Set(code, how))
            --left;
        const bool possible = (child.ends && code == child.natural) ||
                              (child.killed && code == 137) || (child.interrupted && code == 130);
        Require(possible, std::string(how) + " told the code " + std::to_string(code));
    };
    // Whoever asks, and however: it blocks, it looks, it collects, or it leaves that to others.
    for (const bool collect : {true, true, false})
        bodies.emplace_back([&, collect](std::mt19937& random) {
            for (const unsigned int i : Shuffled(count, random)) {
                launched(i);
                long code = 0;
                if (Process_Wait(children[i].process, &code, false, collect))
                    note(children[i], code, "a look");
            }
            for (const unsigned int i : Shuffled(count, random)) {
                long code = 0;
                Require(Process_Wait(children[i].process, &code, true, collect), "a wait");
                note(children[i], code, "a wait");
            }
        });
    bodies.emplace_back([&](std::mt19937& random) {
        for (const unsigned int i : Shuffled(count, random)) {
            launched(i);
            long code = 0;
            while (Process_GetStatus(children[i].process) == psAlive)
                poll(nullptr, 0, 1);
            Require(Process_GetExitCode(children[i].process, &code), "the code of one that ended");
            note(children[i], code, "a question");
        }
    });
    // Those that do not end by themselves are killed by two at once, and half of them interrupted.
    for (unsigned int killer = 0; killer < 2; ++killer)
        bodies.emplace_back([&](std::mt19937& random) {
            for (const unsigned int i : Shuffled(count, random)) {
                launched(i);
                Child& child = children[i];
                if (i % 3 == 0) {
                    child.interrupted = true;
                    Require(Process_Interrupt(child.id) || errno == ESRCH, "an interrupt");
                }
                if (!child.ends || i % 5 == 0) {
                    child.killed = true;
                    Require(Process_Kill(child.process) || errno == ESRCH, "a kill");
                }
            }
        });
    for (unsigned int part = 0; part < 2; ++part)
        bodies.emplace_back([&, part](std::mt19937&) {
            std::vector<std::unique_ptr<zelEvent>> events;
            for (unsigned int i = part; i < count; ++i) {
                launched(i);
                events.push_back(std::make_unique<ptkExecProcessEvent>(children[i].process));
            }
            FollowAll(std::move(events), "children");
        });
    AtOnce(bodies);
    Require(left == 0, "children whose end nobody was told");
    std::array<unsigned int, 256> outcomes{};
    for (Child& child : children) {
        ++outcomes[static_cast<std::size_t>(child.told.Get())];
        Require(!Process_Kill(child.process) && errno == ESRCH, "a kill behind the end");
        Require(!Process_Interrupt(child.id) && errno == ESRCH, "an interrupt behind the end");
        CloseHandle(child.process);
    }
    before.RequireSame("children");
    std::printf("children: %u, of them %u killed, %u interrupted\n", count, outcomes[137],
                outcomes[130]);
}

// --- children, by object: one thread drives each, another waits for its event -----------------

void RaceOnExecProcesses(unsigned int count) {
    const Picture before;
    constexpr unsigned int drivers = 8;
    std::vector<std::vector<std::unique_ptr<zelEvent>>> events(drivers);
    std::vector<std::function<void(std::mt19937&)>> bodies;
    std::vector<std::atomic<bool>> driven(drivers);
    for (unsigned int part = 0; part < drivers; ++part) {
        bodies.emplace_back([&, part](std::mt19937& random) {
            for (unsigned int i = part; i < count; i += drivers) {
                const bool endless = random() % 2 == 0;
                ExecProcess process(endless ? "sleep 1000" : "sh -c 'exit 5'", 0);
                Require(process.Start(random() % 2 == 0), "a start");
                events[part].emplace_back(process.GetExitEvent());
                const bool kills = endless || random() % 4 == 0;
                if (kills)
                    Require(process.Kill() || process.GetExitStatus().GetExitCode() == errNoProcess,
                            "a kill of an object");
                long code = -1;
                switch (random() % 4) {
                case 0:
                    code = process.WaitForProcess();
                    break;
                case 1:
                    while ((code = process.GetExitCode().ExitCode()) == -1)
                        std::this_thread::yield();
                    break;
                case 2:
                    while (process.IsAppAlive())
                        std::this_thread::yield();
                    code = process.WaitForProcess();
                    break;
                default:
                    continue; // the object goes while its child may still run
                }
                Require((kills && code == 137) || (!endless && code == 5), "the code of an object");
            }
            driven[part] = true;
        });
        bodies.emplace_back([&, part](std::mt19937&) {
            while (!driven[part])
                std::this_thread::yield();
            FollowAll(std::move(events[part]), "objects");
        });
    }
    AtOnce(bodies);
    // What was left to itself is collected by the next start.
    for (bool any = true; any;) {
        ExecProcess last("true", 0);
        Require(last.Start() && last.WaitForProcess() == 0, "the last start");
        siginfo_t info{};
        any = waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
    }
    before.RequireSame("objects");
    std::printf("child objects: %u\n", count);
}

// --- threads -----------------------------------------------------------------------------------

struct Body {
    bool ends = true;
    int nap = 0; ///< milliseconds, in which a kill may find it
    std::atomic<unsigned int> returned{0};
};

unsigned int RunBody(void* word) {
    Body& body = *static_cast<Body*>(word);
    if (!body.ends)
        for (;;)
            poll(nullptr, 0, -1);
    poll(nullptr, 0, body.nap);
    ++body.returned;
    return 5;
}

struct ThreadEnd : zelEvent {
    explicit ThreadEnd(void* thread) : zelEvent(new zelMOEvent(thread, 2)) {}
    int GetKind() override { return 0; }
    void* GetInfo() override { return this; }
};

void RaceOnThreads(unsigned int count) {
    const Picture before;
    std::vector<Body> bodies(count);
    std::vector<std::atomic<void*>> threads(count);
    std::vector<std::function<void(std::mt19937&)>> racers;
    const auto launched = [&](unsigned int i) {
        while (threads[i] == nullptr)
            std::this_thread::yield();
        return threads[i].load();
    };
    for (unsigned int part = 0; part < 2; ++part)
        racers.emplace_back([&, part](std::mt19937&) {
            for (unsigned int i = part; i < count; i += 2) {
                bodies[i].ends = i % 3 != 0;
                bodies[i].nap = static_cast<int>(i % 7);
                void* const made = _beginthreadex(nullptr, 0, RunBody, &bodies[i], 0, nullptr);
                Require(made != nullptr, "a thread");
                threads[i] = made;
            }
        });
    for (unsigned int killer = 0; killer < 2; ++killer)
        racers.emplace_back([&](std::mt19937& random) {
            for (const unsigned int i : Shuffled(count, random))
                if (i % 3 == 0 || i % 5 == 0)
                    Require(TerminateThread(launched(i), killCode), "a kill of a thread");
        });
    for (unsigned int waiter = 0; waiter < 2; ++waiter)
        racers.emplace_back([&](std::mt19937& random) {
            for (const unsigned int i : Shuffled(count, random)) {
                const unsigned int result =
                    WaitForSingleObject(launched(i), random() % 2 == 0 ? zelWaitInfinite : 1);
                Require(result == zelWaitSignaled || result == zelWaitTimeout, "a wait");
            }
            for (unsigned int i = 0; i < count; ++i)
                Require(WaitForSingleObject(threads[i], zelWaitInfinite) == zelWaitSignaled,
                        "an end");
        });
    for (unsigned int poller = 0; poller < 2; ++poller)
        racers.emplace_back([&](std::mt19937&) {
            std::vector<std::unique_ptr<zelEvent>> events;
            for (unsigned int i = 0; i < count; ++i)
                events.push_back(std::make_unique<ThreadEnd>(launched(i)));
            FollowAll(std::move(events), "threads");
        });
    AtOnce(racers);
    unsigned int killed = 0;
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned int returned = bodies[i].returned;
        Require(returned <= (bodies[i].ends ? 1u : 0u), "a body that ran twice");
        Require(returned == 1 || i % 3 == 0 || i % 5 == 0, "a body that was cut off by nobody");
        killed += 1 - returned;
        CloseHandle(threads[i]);
    }
    before.RequireSame("threads");
    std::printf("threads: %u, of them %u killed\n", count, killed);
}

// --- tasks and calls ---------------------------------------------------------------------------

struct Managed : pmManageTask {
    explicit Managed(bool returns) : pmManageTask(false, false), ends(returns) {}
    unsigned int ThreadRun() override {
        if (!ends)
            for (;;)
                poll(nullptr, 0, -1);
        return 1;
    }
    using pmThread::GetHandle;
    const bool ends;
};

struct Strict : pmStrictTask {
    unsigned int ThreadRun() override {
        std::this_thread::yield();
        return 1;
    }
};

int Number(void* number) {
    return *static_cast<int*>(number);
}

void RaceOnTasks(unsigned int count) {
    const Picture before;
    proMutex file; // of the managed tasks, which has no lock of its own
    std::atomic<unsigned int> killed{0}, told{0};
    std::vector<std::function<void(std::mt19937&)>> racers;
    constexpr unsigned int drivers = 6;
    for (unsigned int part = 0; part < drivers; ++part)
        racers.emplace_back([&, part](std::mt19937& random) {
            for (unsigned int i = part; i < count; i += drivers) {
                auto task = std::make_unique<Managed>(random() % 2 == 0);
                Require(file.Lock() && task->Start() &&
                            pmManageTask::Fetch(task->GetHandle()) == task.get() && file.Unlock(),
                        "a managed task");
                if (!task->ends || random() % 2 == 0) {
                    Require(file.Lock(), "a lock");
                    Require(task->Kill() && task->GetExitStatus().IsKilled(), "a kill of a task");
                    Require(file.Unlock(), "a lock");
                    ++killed;
                } else {
                    ThreadEnd(task->GetHandle()).Wait(-1);
                    task->pmThread::GetExitStatus().setStatus(errOK); // the handle goes with it
                }
                Require(file.Lock(), "a lock");
                task.reset();
                Require(file.Unlock(), "a lock");

                Strict strict;
                Require(strict.Start() && ptkStrictTaskEvent(&strict).Wait(60000), "a strict task");
                strict.pmThread::GetExitStatus().setStatus(errOK);

                int number = static_cast<int>(i);
                std::unique_ptr<ptkAsyncCallEvent> call(call_async_func(Number, &number));
                Require(call != nullptr, "a call");
                std::thread other([&] { // the event is this thread's for a while
                    Require(call->GetDescriptor() != -1 && call->Wait(60000), "a call's event");
                });
                other.join();
                Require(call->GetReturnValue() == number, "a call's result");
                ++told;
            }
        });
    AtOnce(racers);
    Require(told == count, "calls");
    before.RequireSame("tasks");
    std::printf("tasks: %u managed (%u killed), %u strict, %u calls\n", count, killed.load(), count,
                told.load());
}

} // namespace

int main(int argc, char** argv) {
    const auto count = static_cast<unsigned int>(argc > 1 ? std::atoi(argv[1]) : 1000);
    seed = static_cast<unsigned int>(argc > 2 ? std::atoi(argv[2]) : 1);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    std::thread([] {}).join(); // a sanitizer may start one of its own beside the first
    {
        ExecProcess first("true", 0); // whatever is made once is there from now on
        Require(first.Start() && first.WaitForProcess() == 0, "the first child");
    }
    RaceOnChildren(count);
    RaceOnExecProcesses(count);
    RaceOnThreads(count);
    RaceOnTasks(count);
    return 0;
}
