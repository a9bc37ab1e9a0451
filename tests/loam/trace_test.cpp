// trace_test.cpp - zTraceManager.
#include "loam/trace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

class TraceTest : public testing::Test {
protected:
    ~TraceTest() override { traces()->SetSink({}); }
    static zTraceManager* traces() { return zTraceManager::Default(); }

    void collect() {
        traces()->SetSink([this](const char* message) {
            const std::lock_guard<std::mutex> guard(m_lock);
            m_messages.emplace_back(message);
        });
    }

    std::mutex m_lock;
    std::vector<std::string> m_messages;
};

TEST_F(TraceTest, IsSilentByDefault) {
    testing::internal::CaptureStderr();
    traces()->SetSink({});
    traces()->TraceNote("nobody listens %d\n", 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(TraceTest, FormatsLikePrintfWhateverTheLength) {
    collect();
    const std::string longer(200000, 'y');
    traces()->TraceNote("cThing: %s failed (err=%ld)\n", "step", -21311L);
    traces()->TraceNote("%s\n", longer.c_str());
    traces()->TraceNote("100%%\n");
    ASSERT_EQ(m_messages.size(), 3u);
    EXPECT_EQ(m_messages[0], "cThing: step failed (err=-21311)\n");
    EXPECT_EQ(m_messages[1], longer + "\n");
    EXPECT_EQ(m_messages[2], "100%\n");
}

TEST_F(TraceTest, ASinkMayTraceThrowAndReplaceItself) {
    int calls = 0;
    traces()->SetSink([&](const char*) {
        ++calls;
        traces()->TraceNote("from the sink\n");
        throw std::runtime_error("sink");
    });
    traces()->TraceNote("a\n");
    traces()->TraceNote("b\n");
    EXPECT_EQ(calls, 2) << "its own trace came back to it";
    traces()->SetSink([&](const char*) {
        ++calls;
        collect();
    });
    traces()->TraceNote("c\n");
    traces()->TraceNote("d\n");
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(m_messages, std::vector<std::string>{"d\n"});
}

// When SetSink has returned, what the old sink used may be destroyed.
TEST_F(TraceTest, AReplacedSinkIsNotCalledAnyMore) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            while (!stop) traces()->TraceNote("from %d\n", 1);
        });
    }
    for (int round = 0; round < 200; ++round) {
        auto alive = std::make_unique<std::atomic<int>>(1);
        traces()->SetSink([value = alive.get()](const char*) { EXPECT_EQ(value->load(), 1); });
        traces()->SetSink([](const char*) {});
        *alive = 0;
        alive.reset();
    }
    stop = true;
    for (auto& thread : threads) thread.join();
}

TEST_F(TraceTest, MessagesOfManyThreadsAllArriveWhole) {
    collect();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([i] {
            for (int n = 0; n < 200; ++n) traces()->TraceNote("%d says %s\n", i, "something");
        });
    }
    for (auto& thread : threads) thread.join();
    ASSERT_EQ(m_messages.size(), 1600u);
    for (const std::string& message : m_messages) EXPECT_EQ(message.substr(1), " says something\n");
}

}  // namespace
