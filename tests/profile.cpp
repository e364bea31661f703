// SPDX-License-Identifier: MIT
#include <zelprof.h>

#include <climits>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace {

/// Spins until the clock has gone on by `seconds`.
void Work(double seconds) {
    for (const double start = zelTimeMill(); zelTimeMill() - start < seconds;) {
    }
}

} // namespace

TEST(Time, IsNormalisedToMicrosecondsBelowOneSecond) {
    const long rows[][4] = {
        {0, 999999, 0, 999999}, {1, 3500000, 4, 500000},    {0, -1, -1, 999999},
        {3, -1000000, 2, 0},    {-3, -2500001, -6, 499999}, {LONG_MAX, 1999999, LONG_MAX, 999999},
    };
    for (const auto& [seconds, microseconds, wantSeconds, wantMicroseconds] : rows) {
        const zelTimeval time(seconds, microseconds);
        EXPECT_EQ(time.seconds, wantSeconds) << seconds << " " << microseconds;
        EXPECT_EQ(time.microseconds, wantMicroseconds);
    }
    EXPECT_EQ(zelTimeval(5, 250000).ToDouble(), 5.25);
    const zelTimeMill made;
    EXPECT_NEAR(made, static_cast<double>(std::time(nullptr)), 60);
    const double between = zelTimeval::Now();
    EXPECT_GE(between, made.ToDouble());
    EXPECT_LE(between, zelTimeMill());
}

TEST(Profile, AnEntryReportsInTheFormatOfTheStream) {
    testing::internal::CaptureStdout();
    { const ProfileEntry idle("reading files"); }
    {
        ProfileEntry busy("");
        const ProfilePoint outer(&busy), inner(&busy);
        std::cout.precision(1);
        std::cout << std::fixed;
    }
    std::cout << std::defaultfloat;
    std::string output = testing::internal::GetCapturedStdout();
    if (const std::size_t sign = output.find("-nan"); sign != output.npos)
        output.erase(sign, 1); // the sign of not-a-number is the processor's
    EXPECT_EQ(output, "reading files: 0 times * nan sec = 0 sec total\n"
                      ": 2 times * 0.0 sec = 0.0 sec total\n");
}

TEST(Profile, NestedPointsChargeTheInnermostEntryOnly) {
    auto outer = std::make_unique<ProfileEntry>("x"), inner = std::make_unique<ProfileEntry>("x");
    const double start = zelTimeMill();
    {
        const ProfilePoint point(outer.get());
        Work(0.004);
        {
            const ProfilePoint nested(inner.get());
            Work(0.008);
            const ProfilePoint same(inner.get());
            Work(0.002);
        }
        const ProfilePoint same(outer.get());
        Work(0.003);
    }
    const double elapsed = zelTimeMill() - start;
    testing::internal::CaptureStdout();
    std::cout << std::hexfloat;
    outer.reset();
    inner.reset();
    std::cout << std::defaultfloat;
    double average[2], total[2];
    ASSERT_EQ(std::sscanf(testing::internal::GetCapturedStdout().c_str(),
                          "x: 2 times * %la sec = %la sec total\n"
                          "x: 2 times * %la sec = %la sec total",
                          &average[0], &total[0], &average[1], &total[1]),
              4);
    EXPECT_EQ(average[1], total[1] / 2);
    constexpr double rounding = 1e-5; // a double of this size counts quarters of a microsecond
    EXPECT_GE(total[0], 0.007 - rounding);
    EXPECT_GE(total[1], 0.01 - rounding);
    EXPECT_LE(total[0] + total[1], elapsed + rounding);
}
