// ready_operations_test.cpp - handlers of what has succeeded at once: their order, their bound, and
// what they throw.
#include "websocket/link/ready_operations.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using boost::system::error_code;
using pennywort::websocket::ready_operations;
using handler = std::function<void(error_code, std::size_t)>;

class ReadyOperations : public testing::Test {
protected:
    void add(handler done, std::size_t size = 0) { m_ready.add(done, error_code(), size); }
    handler saying(const char* word) {
        return [this, word](error_code, std::size_t size) {
            m_said += word + std::to_string(size) + ' ';
        };
    }

    ready_operations m_ready;
    std::string m_said;
};

TEST_F(ReadyOperations, AreCompletedBehindTheWorkInTheirOrder) {
    m_ready.run([&] {
        add(saying("first"), 1);
        add(saying("second"), 2);
        m_said += "begun ";
    });
    EXPECT_EQ(m_said, "begun first1 second2 ");
}

TEST_F(ReadyOperations, ThatAHandlerBeginsComeBehindThoseThatWait) {
    m_ready.run([&] {
        add([&](error_code, std::size_t) {
            add(saying("inner"), 3);
            m_said += "outer ";
        });
        add(saying("next"), 2);
    });
    EXPECT_EQ(m_said, "outer next2 inner3 ");
}

TEST_F(ReadyOperations, ARunWithinARunCompletesNothingYet) {
    m_ready.run([&] {
        m_ready.run([&] { add(saying("one"), 1); });
        m_said += "begun ";
    });
    EXPECT_EQ(m_said, "begun one1 ");
}

// Outside of a run nobody would call the handler.
TEST_F(ReadyOperations, AreTakenWithinARunAlone) {
    EXPECT_FALSE(m_ready.takes_more());
    m_ready.run([&] { EXPECT_TRUE(m_ready.takes_more()); });
    EXPECT_FALSE(m_ready.takes_more());
}

// A connection that always has more would keep all others waiting.
TEST_F(ReadyOperations, LetOtherEventsHaveTheirTurn) {
    int count = 0;
    std::function<void()> begin = [&] {
        if (!m_ready.takes_more()) return;
        add([&](error_code, std::size_t) {
            ++count;
            begin();
        });
    };
    m_ready.run(begin);
    EXPECT_GT(count, 8);
    EXPECT_LT(count, 1000);
    const int first = count;
    m_ready.run(begin);
    EXPECT_EQ(count, 2 * first);
}

TEST_F(ReadyOperations, WhatOneThrowsComesOutBehindTheLast) {
    EXPECT_THROW(m_ready.run([&] {
        add([](error_code, std::size_t) { throw std::runtime_error("first"); });
        add(saying("second"), 2);
        throw std::logic_error("begun");
    }),
                 std::logic_error);
    EXPECT_EQ(m_said, "second2 ");
    m_ready.run([&] { add(saying("third"), 3); });
    EXPECT_EQ(m_said, "second2 third3 ");
}

// The handler is gone before it is called: what it keeps may end within the call.
TEST_F(ReadyOperations, AHandlerMayEndWhatItKeeps) {
    auto kept = std::make_shared<int>(7);
    const std::weak_ptr<int> seen = kept;
    m_ready.run([&] {
        add([&seen, mine = std::move(kept)](error_code, std::size_t) mutable {
            mine.reset();
            EXPECT_TRUE(seen.expired());
        });
    });
    EXPECT_TRUE(seen.expired());
}

}  // namespace
