// observer_test.cpp - zObserverHandler.
#include "loam/observer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "loam/message_loop.h"
#include "loam/signal.h"
#include "tests/loam/bounds.h"

namespace {

constexpr std::uint64_t k_what = 0x77686174;

// A payload that tells when it goes.
class tracked_record : public zRecord {
public:
    explicit tracked_record(int& alive) : m_alive(alive) { ++m_alive; }
    ~tracked_record() override { --m_alive; }

private:
    int& m_alive;
};

zRecord* with_what(std::int32_t what) {
    auto* record = new zRecord;
    record->SetInt32(k_what, what, 0);
    return record;
}

void run_what_is_ready() {
    while (zMessageLoop::RunOnce(0)) {
    }
}

TEST(Observer, APayloadThatNobodyWantsGoesAtOnce) {
    int alive = 0;
    EXPECT_EQ(zObserverHandler::PostNotification(zObserverHandler::NewCode(),
                                                 new tracked_record(alive), 0),
              0);
    EXPECT_EQ(alive, 0);
}

TEST(Observer, CodesDifferAndAreNeverZero) {
    const std::int32_t first = zObserverHandler::NewCode();
    EXPECT_NE(first, 0);
    EXPECT_NE(zObserverHandler::NewCode(), first);
}

TEST(Observer, HearsOnItsOwnThreadFromItsLoopOnly) {
    const std::int32_t code = zObserverHandler::NewCode();
    std::vector<std::string> heard;
    std::thread::id on;
    const zObserverHandler observer(code, [&](const zRecord& payload, std::uint64_t data) {
        heard.push_back(std::to_string(payload.AsInt32(k_what, 0)) + ":" + std::to_string(data));
        on = std::this_thread::get_id();
    });
    std::thread([&] {
        zObserverHandler::PostNotification(code, with_what(1), 7);
        zObserverHandler::PostNotification(code, with_what(2), 8);
        zObserverHandler::PostNotification(code + 1000000, with_what(3), 9);
    }).join();
    EXPECT_TRUE(heard.empty()) << "delivered without the loop";
    run_what_is_ready();
    EXPECT_EQ(heard, (std::vector<std::string>{"1:7", "2:8"}));
    EXPECT_EQ(on, std::this_thread::get_id());
}

TEST(Observer, EachOfManyGetsTheSamePayloadWhichGoesAfterTheLast) {
    const std::int32_t code = zObserverHandler::NewCode();
    int calls = 0;
    int alive = 0;
    const auto count = [&](const zRecord&, std::uint64_t) {
        ++calls;
        EXPECT_EQ(alive, 1);
    };
    const zObserverHandler first(code, count);
    const zObserverHandler second(code, count);
    zObserverHandler::PostNotification(code, new tracked_record(alive), 0);
    run_what_is_ready();
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(alive, 0);
}

TEST(Observer, NothingComesAfterItHasGone) {
    const std::int32_t code = zObserverHandler::NewCode();
    int alive = 0;
    {
        const zObserverHandler observer(
            code, [](const zRecord&, std::uint64_t) { FAIL() << "called after its end"; });
        zObserverHandler::PostNotification(code, new tracked_record(alive), 0);
    }
    run_what_is_ready();
    EXPECT_EQ(alive, 0);
}

TEST(Observer, MayEndItselfInItsOwnCall) {
    const std::int32_t code = zObserverHandler::NewCode();
    int calls = 0;
    std::optional<zObserverHandler> observer;
    observer.emplace(code, [&](const zRecord&, std::uint64_t) {
        ++calls;
        observer.reset();
    });
    zObserverHandler::PostNotification(code, with_what(1), 0);
    zObserverHandler::PostNotification(code, with_what(2), 0);
    run_what_is_ready();
    EXPECT_EQ(calls, 1);
}

TEST(Observer, WhatItThrowsStopsNobodyElse) {
    const std::int32_t code = zObserverHandler::NewCode();
    int calls = 0;
    const zObserverHandler throws(
        code, [](const zRecord&, std::uint64_t) { throw std::runtime_error("observer"); });
    const zObserverHandler counts(code, [&](const zRecord&, std::uint64_t) { ++calls; });
    zObserverHandler::PostNotification(code, nullptr, 0);
    run_what_is_ready();
    EXPECT_EQ(calls, 1) << "null stands for an empty record";
}

TEST(Observer, AThreadThatEndsTakesItsNotificationsWithIt) {
    const std::int32_t code = zObserverHandler::NewCode();
    int alive = 0;
    std::unique_ptr<zObserverHandler> observer;
    std::thread([&] {
        observer = std::make_unique<zObserverHandler>(
            code, [](const zRecord&, std::uint64_t) { FAIL() << "called without its thread"; });
        zObserverHandler::PostNotification(code, new tracked_record(alive), 0);
    }).join();
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(zObserverHandler::PostNotification(code, new tracked_record(alive), 0), 0);
    EXPECT_EQ(alive, 0);
    observer.reset();
}

// Ending an observer on another thread waits for a call that is under way there.
TEST(Observer, EndedFromAnotherThreadItsCallIsOverFirst) {
    const std::int32_t code = zObserverHandler::NewCode();
    const std::unique_ptr<zSignal> ready(zSignal::Factory());
    const std::unique_ptr<zSignal> inside(zSignal::Factory());
    std::unique_ptr<zObserverHandler> observer;
    std::shared_ptr<zMessageLoop> loop;
    std::atomic<bool> call_over{false};
    std::thread owner([&] {
        loop = zMessageLoop::Current();
        observer = std::make_unique<zObserverHandler>(code, [&](const zRecord&, std::uint64_t) {
            inside->Set();
            std::this_thread::yield();
            call_over = true;
        });
        ready->Set();
        zMessageLoop::Run();
    });
    ASSERT_EQ(ready->Wait(k_long_us), 0);
    zObserverHandler::PostNotification(code, nullptr, 0);
    ASSERT_EQ(inside->Wait(k_long_us), 0);
    observer.reset();
    EXPECT_TRUE(call_over);
    loop->RequestQuit();
    owner.join();
}

TEST(Observer, PostsFromManyThreadsAllArrive) {
    const std::int32_t code = zObserverHandler::NewCode();
    int heard = 0;
    const zObserverHandler observer(code, [&](const zRecord&, std::uint64_t) { ++heard; });
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([code] {
            for (int n = 0; n < 500; ++n) zObserverHandler::PostNotification(code, with_what(n), 0);
        });
    }
    for (auto& thread : threads) thread.join();
    run_what_is_ready();
    EXPECT_EQ(heard, 2000);
}

}  // namespace
