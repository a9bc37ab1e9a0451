// tests/host/ticker_test.cpp - which ticks are due, and the thread that calls for them.
#include "host/render/ticker.h"
#include "tests/support/eventually.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;

const tick_schedule::time_point k_first_tick = tick_schedule::time_point() + 1000s;

TEST(TickSchedule, NothingIsDueBeforeItsTime) {
    tick_schedule schedule(*frame_rate::parse("50"), k_first_tick);
    EXPECT_EQ(schedule.take_due(k_first_tick - 1ns), 0u);
    EXPECT_EQ(schedule.take_due(k_first_tick), 1u);
    EXPECT_EQ(schedule.take_due(k_first_tick + 20ms - 1ns), 0u);
    EXPECT_EQ(schedule.take_due(k_first_tick + 20ms), 1u);
}

TEST(TickSchedule, ATickThatIsLateMakesNoOtherLate) {
    tick_schedule schedule(*frame_rate::parse("50"), k_first_tick);
    EXPECT_EQ(schedule.take_due(k_first_tick + 19ms), 1u);
    EXPECT_EQ(schedule.next(), k_first_tick + 20ms);
    EXPECT_EQ(schedule.take_due(k_first_tick + 39ms), 1u);
    EXPECT_EQ(schedule.next(), k_first_tick + 40ms);
}

TEST(TickSchedule, TicksThatWereMissedAreDueTogether) {
    tick_schedule schedule(*frame_rate::parse("50"), k_first_tick);
    EXPECT_EQ(schedule.take_due(k_first_tick + 100ms), 6u);
    EXPECT_EQ(schedule.next(), k_first_tick + 120ms);
}

TEST(TickSchedule, ADayOfNtscTicksEndsOnTheNanosecond) {
    tick_schedule schedule(*frame_rate::parse("59.94"), k_first_tick);
    std::uint64_t due = 0;
    for (int second = 1; second <= 1001 * 86; ++second)
        due += schedule.take_due(k_first_tick + second * 1s);
    EXPECT_EQ(due, 60000u * 86 + 1);
}

TEST(Ticker, CallsUntilItEndsAndNotAfterwards) {
    std::atomic<std::uint64_t> due_ticks{0};
    std::atomic<bool> wrong_order{false};
    {
        tick_schedule::time_point last{};
        const ticker ticks(*frame_rate::parse("240"), [&](auto now, std::uint64_t due) {
            wrong_order = wrong_order || now < last || due == 0;
            last = now;
            due_ticks += due;
        });
        EXPECT_TRUE(tests::eventually([&] { return due_ticks >= 10; }));
    }
    const std::uint64_t at_the_end = due_ticks;
    std::this_thread::yield();
    EXPECT_EQ(due_ticks, at_the_end);
    EXPECT_FALSE(wrong_order);
}

TEST(Ticker, StartsAndEndsAHundredTimes) {
    std::atomic<std::uint64_t> due_ticks{0};
    const auto begun = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) {
        const ticker ticks(*frame_rate::parse("1"),
                           [&](auto, std::uint64_t due) { due_ticks += due; });
    }
    // One at the beginning of each, and one for each second that went by.
    const auto seconds = (std::chrono::steady_clock::now() - begun) / 1s;
    EXPECT_LE(due_ticks, 100 + static_cast<std::uint64_t>(seconds));
}

}  // namespace
}  // namespace pennywort::host
