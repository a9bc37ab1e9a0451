// tick_ledger_test.cpp - which ticks of a host's clock count as missed.
#include "webdisplay/tick_ledger.h"

#include <gtest/gtest.h>

namespace pennywort::webdisplay {
namespace {

// A page that has been reporting for a while, every tenth frame.
class TickLedgerTest : public testing::Test {
protected:
    void SetUp() override { follow(10, false); }

    // Ticks that the page follows, with or without a picture each.
    void follow(int ticks, bool pictures) {
        for (int i = 0; i < ticks; ++i) {
            m_ledger.ticked();
            if (pictures) m_ledger.painted();
            if (++m_frames % 10 == 0) m_ledger.page_had(m_frames);
        }
    }
    void drop(int ticks) {
        for (int i = 0; i < ticks; ++i) m_ledger.ticked();
    }

    tick_ledger m_ledger;
    std::uint64_t m_frames = 0;
};

TEST_F(TickLedgerTest, APageAtRestMissesNothing) {
    follow(1000, false);
    EXPECT_EQ(m_ledger.missed(), 0u);
    EXPECT_EQ(m_ledger.ticks(), 1010u);
}

TEST_F(TickLedgerTest, APageThatStallsMissesWhatItDidNotAnswer) {
    follow(40, true);
    drop(25);
    follow(40, true);
    EXPECT_EQ(m_ledger.missed(), 23u);  // two may still be on their way
    drop(10);
    follow(40, true);
    EXPECT_EQ(m_ledger.missed(), 33u) << "the two are counted once";
}

TEST_F(TickLedgerTest, PicturesWithoutThePagesScriptAreAnswersToo) {
    for (int i = 0; i < 100; ++i) {
        m_ledger.ticked();
        m_ledger.painted();
    }
    follow(10, true);
    EXPECT_EQ(m_ledger.missed(), 0u);
}

TEST_F(TickLedgerTest, TicksBetweenTwoPagesAreNobodysFault) {
    drop(500);
    m_frames = 0;
    follow(20, false);
    EXPECT_EQ(m_ledger.missed(), 0u);
}

TEST_F(TickLedgerTest, AHiddenPageIsNotBlamed) {
    m_ledger.interrupted();
    drop(500);
    m_ledger.interrupted();
    follow(30, false);
    EXPECT_EQ(m_ledger.missed(), 0u);
}

TEST_F(TickLedgerTest, WhatWasMissedStaysCountedAcrossPages) {
    drop(12);
    follow(10, false);
    ASSERT_EQ(m_ledger.missed(), 10u);
    m_frames = 0;
    follow(100, false);
    EXPECT_EQ(m_ledger.missed(), 10u);
}

}  // namespace
}  // namespace pennywort::webdisplay
