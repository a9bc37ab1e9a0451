// live_picture_test.cpp - pictures for whoever asks, and none for nobody.
#include "host/live/live_picture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include "tests/support/eventually.h"

namespace pennywort::host {
namespace {

constexpr long k_side = 4;

class LivePicturesTest : public testing::Test {
protected:
    void paint() { m_pictures.painted(m_pixels.data(), k_side, k_side); }
    void pause() { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }

    void wait_until_encoded(std::uint64_t count) {
        EXPECT_TRUE(tests::eventually([&] { return m_pictures.counts().encoded >= count; }));
    }

    std::uint64_t m_number = 0;
    std::vector<std::uint32_t> m_pixels = std::vector<std::uint32_t>(k_side * k_side, 0xff808080u);
    live_pictures m_pictures;
};

TEST_F(LivePicturesTest, AreNotMadeWhileNobodyAsks) {
    for (int i = 0; i < 50; ++i) {
        paint();
        pause();
    }
    EXPECT_EQ(m_pictures.counts().encoded, 0u);
    EXPECT_EQ(m_pictures.counts().painted, 50u);
    EXPECT_EQ(m_pictures.counts().dropped, 49u);
}

TEST_F(LivePicturesTest, AreGivenOnceEach) {
    paint();
    EXPECT_EQ(m_pictures.take(0, m_number), nullptr);
    wait_until_encoded(1);
    ASSERT_NE(m_pictures.take(0, m_number), nullptr);
    EXPECT_EQ(m_number, 1u);
    EXPECT_EQ(m_pictures.take(m_number, m_number), nullptr);
}

// A page outlives the program that it shows, and the next one counts from 1 again.
TEST_F(LivePicturesTest, AreGivenToAReaderOfAnotherRun) {
    paint();
    EXPECT_EQ(m_pictures.take(1000, m_number), nullptr);
    wait_until_encoded(1);
    ASSERT_NE(m_pictures.take(1000, m_number), nullptr);
    EXPECT_EQ(m_number, 1u);
}

// Whoever asks now and then is to get a fresh one, not the one of the time before.
TEST_F(LivePicturesTest, AreKeptReadyForAWhileAfterAQuestion) {
    // On a busy machine that while may be over before another picture is painted, for once.
    EXPECT_TRUE(tests::eventually([&] {
        const std::uint64_t before = m_pictures.counts().encoded;
        paint();
        m_pictures.take(0, m_number);
        wait_until_encoded(before + 1);
        for (int i = 0; i < 1000 && m_pictures.counts().encoded < before + 2; ++i) {
            paint();
            pause();
        }
        return m_pictures.counts().encoded >= before + 2;
    }));
    ASSERT_NE(m_pictures.take(1, m_number), nullptr);
    EXPECT_GT(m_number, 1u);
}

// A page that stands still has no newer one, however long ago that was.
TEST_F(LivePicturesTest, OfAPageThatStandsStillStayGood) {
    paint();
    m_pictures.take(0, m_number);
    wait_until_encoded(1);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    EXPECT_NE(m_pictures.take(0, m_number), nullptr);
}

}  // namespace
}  // namespace pennywort::host
