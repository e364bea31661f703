// SPDX-License-Identifier: MIT
#include <zelprof.h>

#include <climits>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

/// What `entry` says when it is destroyed: calls and total, in as many digits as there are.
struct Report {
    unsigned int calls = 0;
    double average = 0;
    double total = 0;
};

Report End(std::optional<ProfileEntry>& entry) {
    testing::internal::CaptureStdout();
    std::cout << std::hexfloat;
    entry.reset();
    std::cout << std::defaultfloat;
    Report report;
    const std::string line = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::sscanf(line.c_str(), "x: %u times * %la sec = %la sec total\n", &report.calls,
                          &report.average, &report.total),
              3)
        << line;
    return report;
}

double Now() {
    return zelTimeMill();
}

/// Spins until the clock has gone on by `seconds`, and gives by how much it has.
double Work(double seconds) {
    const double start = Now();
    double passed = 0;
    while (passed < seconds)
        passed = Now() - start;
    return passed;
}

} // namespace

TEST(Time, IsNormalisedToMicrosecondsBelowOneSecond) {
    const struct {
        long seconds, microseconds;
        long wantSeconds, wantMicroseconds;
    } rows[] = {
        {5, 250000, 5, 250000},
        {0, 999999, 0, 999999},
        {0, 1000000, 1, 0},
        {1, 3500000, 4, 500000},
        {0, -1, -1, 999999},
        {3, -1000000, 2, 0},
        {-3, -2500001, -6, 499999},
        {LONG_MAX, 1999999, LONG_MAX, 999999},
        {LONG_MIN, -1, LONG_MIN, 999999},
    };
    for (const auto& row : rows) {
        const zelTimeval time(row.seconds, row.microseconds);
        EXPECT_EQ(time.seconds, row.wantSeconds) << row.seconds << " " << row.microseconds;
        EXPECT_EQ(time.microseconds, row.wantMicroseconds);
    }
    EXPECT_EQ(zelTimeval(5, 250000).ToDouble(), 5.25);
    const auto before = static_cast<double>(std::time(nullptr));
    const zelTimeMill made;
    EXPECT_GE(made.ToDouble(), before - 1); // the coarse clock behind time() may lag or lead
    EXPECT_LT(made.ToDouble(), before + 60);
    EXPECT_GE(zelTimeval::Now(), made.ToDouble());
    EXPECT_LE(zelTimeval::Now(), zelTimeMill());
}

TEST(Profile, AnEntryReportsInTheFormatOfTheStream) {
    testing::internal::CaptureStdout();
    { const ProfileEntry idle("reading files"); }
    { const ProfileEntry unnamed(""); }
    std::cout << std::fixed;
    std::cout.precision(1);
    {
        ProfileEntry busy("fixed");
        const ProfilePoint outer(&busy);
        const ProfilePoint inner(&busy);
    }
    std::cout << std::defaultfloat;
    std::cout.precision(6);
    std::string output = testing::internal::GetCapturedStdout();
    for (std::size_t at; (at = output.find("-nan")) != std::string::npos;)
        output.erase(at, 1); // the sign of not-a-number is the processor's
    EXPECT_EQ(output, "reading files: 0 times * nan sec = 0 sec total\n"
                      ": 0 times * nan sec = 0 sec total\n"
                      "fixed: 2 times * 0.0 sec = 0.0 sec total\n");
}

TEST(Profile, NestedPointsChargeTheInnermostEntryOnly) {
    std::optional<ProfileEntry> outer("x");
    std::optional<ProfileEntry> inner("x");
    double outerWork = 0;
    double innerWork = 0;
    const double start = Now();
    {
        const ProfilePoint point(&*outer);
        outerWork += Work(0.004);
        {
            const ProfilePoint nested(&*inner);
            innerWork += Work(0.008);
            const ProfilePoint nestedAgain(&*inner);
            innerWork += Work(0.002);
        }
        outerWork += Work(0.001);
        {
            const ProfilePoint same(&*outer);
            outerWork += Work(0.002);
        }
        innerWork += [&] {
            const ProfilePoint nested(&*inner);
            return Work(0.001);
        }();
    }
    const double elapsed = Now() - start;
    const Report outerReport = End(outer);
    const Report innerReport = End(inner);
    EXPECT_EQ(outerReport.calls, 2u);
    EXPECT_EQ(innerReport.calls, 3u);
    EXPECT_EQ(outerReport.average, outerReport.total / 2);
    constexpr double rounding = 1e-5; // a double of this size counts quarters of a microsecond
    EXPECT_GE(outerReport.total, outerWork - rounding);
    EXPECT_GE(innerReport.total, innerWork - rounding);
    EXPECT_LE(outerReport.total + innerReport.total, elapsed + rounding);
}
