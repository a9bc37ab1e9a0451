// countdown_test.cpp - a time-out that several waits share, on a clock of the test's own.
#include "loam/countdown.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

std::int64_t s_now = 0;

std::int64_t now() { return s_now; }

class CountdownTest : public testing::Test {
protected:
    CountdownTest() { s_now = 5'000'000; }
};

TEST_F(CountdownTest, SharesItsTimeBetweenAllWaits) {
    const loam::countdown time(200, &now);
    EXPECT_EQ(time.left(), 200);
    s_now += 150'000;
    EXPECT_EQ(time.left(), 50);
    s_now += 50'000;
    EXPECT_EQ(time.left(), 0);
    s_now += 1'000'000;
    EXPECT_EQ(time.left(), 0);
}

// A wait of what is left, cut down to whole milliseconds, would end early and then spin.
TEST_F(CountdownTest, RoundsUp) {
    const loam::countdown time(2, &now);
    s_now += 1;
    EXPECT_EQ(time.left(), 2);
    s_now += 1'998;
    EXPECT_EQ(time.left(), 1);
}

TEST_F(CountdownTest, OfANegativeTimeNeverEnds) {
    const loam::countdown time(-7, &now);
    s_now = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(time.left(), -1);
}

TEST_F(CountdownTest, TakesTheLongestTimeThereIs) {
    constexpr std::int32_t k_most = std::numeric_limits<std::int32_t>::max();
    EXPECT_EQ(loam::countdown(k_most, &now).left(), k_most);
}

}  // namespace
