// message_loop_test.cpp - zMessageLoop.
#include "loam/message_loop.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "loam/signal.h"
#include "tests/loam/bounds.h"

namespace {

// A loop of an earlier test may have left a quit behind only if it is broken.
class MessageLoopTest : public testing::Test {
protected:
    std::shared_ptr<zMessageLoop> m_loop = zMessageLoop::Current();
    std::string m_order;
};

TEST_F(MessageLoopTest, AnEmptyFunctionIsRefused) {
    EXPECT_LT(m_loop->Post(std::function<void()>()), 0);
    EXPECT_FALSE(zMessageLoop::RunOnce(0));
}

TEST_F(MessageLoopTest, RunsWhatIsPostedInOrder) {
    for (const char step : {'a', 'b', 'c'}) {
        EXPECT_EQ(m_loop->Post([this, step] { m_order += step; }), 0);
    }
    EXPECT_EQ(m_order, "") << "ran inside Post";
    while (m_order.size() < 3 && zMessageLoop::RunOnce(k_long_us)) {
    }
    EXPECT_EQ(m_order, "abc");
}

TEST_F(MessageLoopTest, AQuitAskedForBeforehandEndsTheNextRun) {
    m_loop->RequestQuit();
    m_loop->RequestQuit();
    zMessageLoop::Run();
    m_loop->Post([this] {
        m_order += 'x';
        zMessageLoop::Quit();
    });
    zMessageLoop::Run();
    EXPECT_EQ(m_order, "x") << "two requests counted twice";
}

TEST_F(MessageLoopTest, EachQuitEndsTheInnermostRun) {
    m_loop->Post([this] {
        m_order += '1';
        m_loop->Post([this] {
            m_order += '2';
            zMessageLoop::Quit();
        });
        zMessageLoop::Run();
        m_order += '3';
        zMessageLoop::Quit();
    });
    zMessageLoop::Run();
    EXPECT_EQ(m_order, "123");
}

TEST_F(MessageLoopTest, WhatPostedWorkThrowsStaysThere) {
    m_loop->Post([] { throw std::runtime_error("posted"); });
    m_loop->Post([] { throw 7; });
    m_loop->Post([] { zMessageLoop::Quit(); });
    zMessageLoop::Run();
    SUCCEED();
}

TEST_F(MessageLoopTest, WorkMayPostMoreWork) {
    int left = 1000;
    std::function<void()> again = [&] {
        if (--left > 0) {
            m_loop->Post(again);
        } else {
            zMessageLoop::Quit();
        }
    };
    m_loop->Post(again);
    zMessageLoop::Run();
    EXPECT_EQ(left, 0);
}

TEST_F(MessageLoopTest, OtherThreadsWakeAWaitingLoop) {
    std::vector<std::thread> threads;
    int arrived = 0;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 250; ++n) {
                m_loop->Post([&] {
                    if (++arrived == 1000) zMessageLoop::Quit();
                });
            }
        });
    }
    zMessageLoop::Run();
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(arrived, 1000);
}

TEST_F(MessageLoopTest, EachThreadHasALoopOfItsOwn) {
    std::promise<std::shared_ptr<zMessageLoop>> made;
    std::thread::id ran_on;
    std::thread other([&] {
        made.set_value(zMessageLoop::Current());
        zMessageLoop::Run();
    });
    const auto loop = made.get_future().get();
    const auto expected = other.get_id();
    EXPECT_NE(loop, m_loop);
    loop->Post([&] {
        ran_on = std::this_thread::get_id();
        zMessageLoop::Quit();
    });
    other.join();
    EXPECT_EQ(ran_on, expected);
}

TEST_F(MessageLoopTest, ALoopWhoseThreadHasEndedTakesNothingAndKeepsNothing) {
    std::shared_ptr<zMessageLoop> loop;
    const auto held = std::make_shared<int>(1);
    std::thread([&] {
        loop = zMessageLoop::Current();
        loop->Post([held] { FAIL() << "ran without a loop"; });
    }).join();
    EXPECT_EQ(held.use_count(), 1) << "work that can never run is still held";
    EXPECT_LT(loop->Post([] {}), 0);
    loop->RequestQuit();
}

TEST_F(MessageLoopTest, AskedWithoutWaitingItDoesNotWait) {
    EXPECT_FALSE(zMessageLoop::RunOnce(0));
    m_loop->Post([this] { m_order += 'x'; });
    EXPECT_TRUE(zMessageLoop::RunOnce(0));
    EXPECT_EQ(m_order, "x");
}

TEST_F(MessageLoopTest, ThreadsWithLoopsComeAndGoWithoutATrace) {
    for (int i = 0; i < 100; ++i) {
        std::promise<std::shared_ptr<zMessageLoop>> made;
        std::thread other([&] {
            made.set_value(zMessageLoop::Current());
            zMessageLoop::Run();
        });
        made.get_future().get()->RequestQuit();
        other.join();
    }
    SUCCEED();
}

}  // namespace
