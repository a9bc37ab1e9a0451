// main_thread_timer_test.cpp - the timer that drives the runtime: requests, rests, idle ticks.
#include "webdisplay/main_thread_timer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>

#include "loam/message_loop.h"

namespace {

using pennywort::webdisplay::main_thread_timer;

constexpr int k_never_ms = 3'600'000;
constexpr std::int64_t k_for_ever_us = 3'600'000'000;

class MainThreadTimer : public testing::Test {
protected:
    MainThreadTimer() : m_timer(main_thread_timer::make([this] { ++m_ticks; })) {}
    ~MainThreadTimer() override {
        if (m_timer) m_timer->stop();
    }
    void SetUp() override { ASSERT_TRUE(m_timer); }

    bool ticks_come(int wanted) {
        for (int turn = 0; turn < 1000 && m_ticks < wanted; ++turn) zMessageLoop::RunOnce(10'000);
        return m_ticks >= wanted;
    }
    static void run_a_while() {
        for (int turn = 0; turn < 5; ++turn) zMessageLoop::RunOnce(10'000);
    }

    int m_ticks = 0;
    std::shared_ptr<main_thread_timer> m_timer;
};

TEST_F(MainThreadTimer, WhatIsAskedForInARestWaitsForItsEnd) {
    m_timer->start_on_request(k_never_ms);
    m_timer->rest(k_for_ever_us);
    m_timer->request(0);
    run_a_while();
    EXPECT_EQ(m_ticks, 0);
}

TEST_F(MainThreadTimer, WhatWasAskedForBeforeARestStands) {
    m_timer->start_on_request(k_never_ms);
    m_timer->request(0);
    m_timer->rest(k_for_ever_us);
    m_timer->request(0);
    EXPECT_TRUE(ticks_come(1));
}

TEST_F(MainThreadTimer, ARequestOfAnEndedRestIsServed) {
    m_timer->start_on_request(k_never_ms);
    for (int round = 1; round <= 20; ++round) {
        m_timer->rest(round * 100);
        m_timer->request(0);
        ASSERT_TRUE(ticks_come(round)) << round;
    }
}

TEST_F(MainThreadTimer, ALaterRequestDoesNotPutOffAnEarlierOne) {
    m_timer->start_on_request(k_never_ms);
    m_timer->request(1);
    m_timer->request(k_never_ms);
    EXPECT_TRUE(ticks_come(1));
}

// Cut off to milliseconds they would all come at once.
TEST_F(MainThreadTimer, PartsOfAMillisecondAreWaitedFor) {
    m_timer->start_on_request(k_never_ms);
    const auto begin = std::chrono::steady_clock::now();
    for (int round = 1; round <= 200; ++round) {
        m_timer->request_in(std::chrono::microseconds(100));
        ASSERT_TRUE(ticks_come(round)) << round;
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
}

TEST_F(MainThreadTimer, ARestDoesNotHoldUpTheIdleTick) {
    m_timer->start_on_request(1);
    m_timer->rest(k_for_ever_us);
    EXPECT_TRUE(ticks_come(3));
}

TEST_F(MainThreadTimer, ARestDoesNotHoldUpAPeriod) {
    m_timer->start_periodic(1);
    m_timer->rest(k_for_ever_us);
    EXPECT_TRUE(ticks_come(3));
}

TEST_F(MainThreadTimer, StoppedItTicksNoMore) {
    m_timer->start_on_request(1);
    ASSERT_TRUE(ticks_come(1));
    m_timer->request(0);
    m_timer->stop();
    const int before = m_ticks;
    run_a_while();
    EXPECT_EQ(m_ticks, before);
}

}  // namespace
