// SPDX-License-Identifier: MIT
//
// The main of every test: each case must leave the process as it was, or announce what it changes.
// What a hostile host can be inside the process is set up here as well, by two variables.
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "testing/hostlistener.h"

int main(int count, char** words) {
    testing::InitGoogleTest(&count, words);
    const char* const locale = std::getenv("PLINTH_HOST_LOCALE");
    if (locale != nullptr && std::setlocale(LC_ALL, locale) == nullptr) {
        std::fprintf(stderr, "this host has no locale %s\n", locale);
        return 2;
    }
    if (std::getenv("PLINTH_HOST_STORM") != nullptr) { // its signals come from outside
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGURG, &action, nullptr);
    }
    testing::UnitTest::GetInstance()->listeners().Append(new hostpicture::Listener);
    return RUN_ALL_TESTS();
}
