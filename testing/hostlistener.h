// SPDX-License-Identifier: MIT
//
// The harness for side effects around every test case of a GoogleTest suite: a case that leaves
// something of the process otherwise than it was, without having announced it, fails, and the
// difference is told in words. In the suite's main, before RUN_ALL_TESTS:
//
//     testing::UnitTest::GetInstance()->listeners().Append(new hostpicture::Listener);
//
// The fixture of the case belongs to it; what SetUpTestSuite and global environments do does not.
#ifndef PLINTH_TESTING_HOSTLISTENER_H
#define PLINTH_TESTING_HOSTLISTENER_H

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "testing/hostpicture.h"

namespace hostpicture {

/// GoogleTest owns it once it has been appended. One in a program.
class Listener : public ::testing::EmptyTestEventListener {
public:
    void OnTestStart(const ::testing::TestInfo&) override { Current() = std::make_unique<Watch>(); }
    void OnTestEnd(const ::testing::TestInfo& info) override {
        const std::string told = Current()->Differences();
        Current().reset();
        if (!told.empty())
            ADD_FAILURE_AT(info.file(), info.line())
                << "The case has left the process otherwise than it was:\n"
                << told;
    }

    /// The watch over the case that runs; null between cases, and where no listener was appended.
    static std::unique_ptr<Watch>& Current() {
        static std::unique_ptr<Watch> watch;
        return watch;
    }
};

/// Called by a case: it changes this on purpose, see Watch. From the case's own thread.
inline void Announce(const std::string& subject) {
    if (Listener::Current() != nullptr)
        Listener::Current()->Announce(subject);
}

} // namespace hostpicture

#endif
