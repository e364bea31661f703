// SPDX-License-Identifier: MIT
//
// The conditions that every case of some families is run under.
#ifndef PLINTH_TESTS_WEATHER_H
#define PLINTH_TESTS_WEATHER_H

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/support.h"

namespace support {

/// Entries of a folder of /proc/self that holds a number for each of something.
inline long Count(const char* folder) {
    using Walk = std::filesystem::directory_iterator;
    return std::distance(Walk(std::string("/proc/self/") + folder), Walk());
}

enum class Weather { Calm, Storm, FewDescriptors };

/// Storm: every thread of the process is interrupted a thousand times a second.
/// FewDescriptors: the process has 40 at the most.
class WeatherTest : public testing::TestWithParam<Weather> {
protected:
    WeatherTest() {
        std::thread([] {}).join(); // a sanitizer may start one of its own beside the first
        if (GetParam() == Weather::FewDescriptors) {
            const rlimit few{40, 40};
            setrlimit(RLIMIT_NOFILE, &few);
        }
        if (GetParam() != Weather::Storm)
            return;
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGURG, &action, nullptr);
        storm = std::thread([this] {
            const timespec pause{0, 1000000};
            for (; !isOver; nanosleep(&pause, nullptr))
                for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
                    syscall(SYS_tgkill, getpid(), std::stoi(task.path().filename()), SIGURG);
        });
    }
    ~WeatherTest() override {
        isOver = true;
        if (storm.joinable())
            storm.join();
    }

private:
    std::atomic<bool> isOver{false};
    std::thread storm;
};

inline std::string NameOf(const testing::TestParamInfo<Weather>& info) {
    const char* const names[] = {"Calm", "Storm", "FewDescriptors"};
    return names[static_cast<int>(info.param)];
}

inline void PrintTo(Weather weather, std::ostream* out) {
    *out << static_cast<int>(weather);
}

inline const auto allWeathers =
    testing::Values(Weather::Calm, Weather::Storm, Weather::FewDescriptors);

} // namespace support

#endif
