// tests/host/writer_thread_test.cpp - frames on their way to a writer that is slow or fails.
#include "host/output/writer_thread.h"

#include <gtest/gtest.h>

#include <string>
#include <system_error>

#include "core/limits.h"
#include "tests/host/fake_writer.h"

namespace pennywort::host {
namespace {

using colours = std::vector<std::uint32_t>;

class WriterThread : public testing::Test {
protected:
    std::unique_ptr<writer_thread> make() {
        return std::make_unique<writer_thread>(std::make_unique<fake_writer>(log));
    }
    const std::shared_ptr<writer_log> log = std::make_shared<writer_log>();
};

TEST_F(WriterThread, AFailureIsToldAndEndsTheWriting) {
    log->fail_at = 2;
    auto writer = make();
    for (std::uint32_t i = 0; i < 50; ++i) writer->show(picture_of(i));
    const auto result = writer->finish();
    EXPECT_EQ(result.text(), "the disk is full");
    EXPECT_TRUE(writer->has_failed());
    EXPECT_EQ(writer->written(), 2u);
    EXPECT_EQ(log->frames(), (colours{0, 1}));
    // What was written so far is completed all the same.
    EXPECT_EQ(log->finished, 1);
}

TEST_F(WriterThread, AFailureAtTheEndIsToldToo) {
    log->finish_failure = "no room for the index";
    auto writer = make();
    writer->show(picture_of(1));
    EXPECT_EQ(writer->finish().text(), "no room for the index");
}

TEST_F(WriterThread, TheFirstFailureIsTheOneThatIsTold) {
    log->fail_at = 0;
    log->finish_failure = "no room for the index";
    auto writer = make();
    writer->show(picture_of(1));
    EXPECT_EQ(writer->finish().text(), "the disk is full");
}

// Fails as a series does for which the system has no more threads.
class throwing_writer : public frame_writer {
public:
    explicit throwing_writer(bool throws_at_end) : m_throws_at_end(throws_at_end) {}
    outcome begin() override { return outcome::fine(); }
    outcome show(const picture_ptr&) override { return m_throws_at_end ? outcome::fine() : fail(); }
    outcome finish() override { return m_throws_at_end ? fail() : outcome::fine(); }

private:
    [[noreturn]] static outcome fail() {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    }
    const bool m_throws_at_end;
};

TEST_F(WriterThread, AnExceptionIsAFailureWithItsWords) {
    const std::system_error words(std::make_error_code(std::errc::resource_unavailable_try_again));
    for (const bool throws_at_end : {false, true}) {
        writer_thread writer(std::make_unique<throwing_writer>(throws_at_end));
        writer.show(picture_of(1));
        EXPECT_EQ(writer.finish().text(), std::string("cannot write: ") + words.what());
        EXPECT_TRUE(writer.has_failed());
    }
}

TEST_F(WriterThread, FramesAfterAFailureHoldNoMemory) {
    log->fail_at = 0;
    auto writer = make();
    writer->show(picture_of(1));
    EXPECT_FALSE(writer->finish().ok());
    auto late = picture_of(2);
    writer->show(late);
    EXPECT_EQ(late.use_count(), 1);
}

TEST_F(WriterThread, SoundKeepsItsPlaceAmongTheFrames) {
    auto writer = make();
    writer->show(picture_of(1));
    writer->hear({0.5f, -0.5f});
    writer->show_again();
    writer->hear({});
    writer->hear({1, 2});
    writer->show(picture_of(2));
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(log->frames(), (colours{1, 1, 2}));
    EXPECT_EQ(writer->written(), 3u);
    EXPECT_EQ(log->heard, (std::vector<float>{0.5f, -0.5f, 1, 2}));
}

// A reader that pauses for long takes no memory, and finds what comes then at its time.
TEST_F(WriterThread, SoundWithoutRoomBecomesSilence) {
    log->held = true;
    auto writer = make();
    writer->show(picture_of(1));
    log->wait_until_one_waits();
    constexpr std::size_t k_all = k_max_waiting_sound_bytes / sizeof(float);
    writer->hear(std::vector<float>(k_all - 2, 1));
    writer->hear({2, 2, 2, 2});
    writer->hear({3, 3});
    log->hold_up(false);
    EXPECT_TRUE(writer->finish().ok());
    ASSERT_EQ(log->heard.size(), k_all + 4);
    EXPECT_EQ(log->heard[k_all - 3], 1);
    const std::vector<float> end(log->heard.end() - 6, log->heard.end());
    EXPECT_EQ(end, (std::vector<float>{0, 0, 0, 0, 3, 3}));
}

TEST_F(WriterThread, NothingToRepeatIsNoFrame) {
    auto writer = make();
    writer->show_again();
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(log->frames(), colours());
}

TEST_F(WriterThread, WithoutAFrameTheOutputIsCompletedToo) {
    EXPECT_TRUE(make()->finish().ok());
    EXPECT_EQ(log->finished, 1);
}

TEST_F(WriterThread, FramesAndRepeatsComeInTheirOrder) {
    auto writer = make();
    writer->show(picture_of(1));
    writer->show_again();
    writer->show(picture_of(2));
    writer->show_again();
    writer->show_again();
    writer->show(picture_of(3));
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(log->frames(), (colours{1, 1, 2, 2, 2, 3}));
    EXPECT_EQ(writer->written(), 6u);
    EXPECT_TRUE(writer->has_finished());
}

// The output of a page that paints without changing anything shows repeated frames.
TEST_F(WriterThread, PicturesThatLookAsTheOneBeforeAreCounted) {
    auto writer = make();
    for (const std::uint32_t colour : {1u, 1u, 2u, 1u, 1u}) {
        writer->show(picture_of(colour, 8, 8));
        writer->show_again();
    }
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(log->frames(), (colours{1, 1, 1, 1, 2, 2, 1, 1, 1, 1}));
    EXPECT_EQ(writer->unchanged(), 2u);
    EXPECT_EQ(writer->repeated(), 7u);
}

TEST_F(WriterThread, APictureThatDiffersInItsLastPixelIsAnother) {
    auto writer = make();
    writer->show(picture_of(1, 8, 8));
    auto other = std::make_shared<picture>(8, 8);
    for (std::size_t i = 0; i < other->pixel_count(); ++i) other->pixels[i] = i == 63 ? 2 : 1;
    writer->show(other);
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(writer->unchanged(), 0u);
}

// A player that is paused for an hour costs one number, not a picture per frame.
TEST_F(WriterThread, RepeatsWhileTheWriterWaitsHoldNoMoreThanOnePicture) {
    log->hold_up(true);
    auto writer = make();
    auto first = picture_of(1);
    writer->show(first);
    log->wait_until_one_waits();
    for (int i = 0; i < 100'000; ++i) writer->show_again();
    EXPECT_LE(first.use_count(), 4);
    log->hold_up(false);
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(log->frames().size(), 100'001u);
}

// What waits is neither written nor repeated yet.
TEST_F(WriterThread, RepeatsThatWaitAreNotCounted) {
    log->hold_up(true);
    auto writer = make();
    writer->show(picture_of(1));
    log->wait_until_one_waits();
    for (int i = 0; i < 10; ++i) writer->show_again();
    EXPECT_EQ(writer->repeated(), 0u);
    log->hold_up(false);
    EXPECT_TRUE(writer->finish().ok());
    EXPECT_EQ(writer->written(), 11u);
    EXPECT_EQ(writer->repeated(), 10u);
}

TEST_F(WriterThread, OneThatIsDroppedWritesNoMoreThanItHasBegun) {
    log->hold_up(true);
    auto writer = make();
    for (std::uint32_t i = 0; i < 10; ++i) writer->show(picture_of(i));
    log->wait_until_one_waits();
    std::thread dropping([&] { writer.reset(); });
    log->hold_up(false);
    dropping.join();
    EXPECT_LE(log->frames().size(), 10u);
    EXPECT_EQ(log->finished, 1);
}

}  // namespace
}  // namespace pennywort::host
