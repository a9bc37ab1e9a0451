// tests/host/recorder_test.cpp - pictures and ticks in, output frames and counts out.
#include "host/render/recorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/host/fake_writer.h"

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;
using colours = std::vector<std::uint32_t>;

constexpr long k_width = 4;
constexpr long k_height = 2;

class Recorder : public testing::Test {
protected:
    Recorder()
        : writer(std::make_unique<fake_writer>(log)),
          frames(k_width, k_height, *frame_rate::parse("50"), &writer) {}

    // One tick, and its picture 5 ms later unless the colour is 0.
    void tick(recorder& to, std::uint32_t colour) {
        to.tick(now);
        if (colour != 0) paint(to, colour, now + 5ms);
        now += 20ms;
    }
    void tick(std::uint32_t colour) { tick(frames, colour); }
    void let_decide() {
        for (int i = 0; i < 3; ++i) tick(0);
    }
    static void paint(recorder& to, std::uint32_t colour, recorder::time_point at) {
        const std::vector<std::uint32_t> pixels(k_width * k_height, colour);
        to.painted(pixels.data(), k_width, k_height, at);
    }

    const std::shared_ptr<writer_log> log = std::make_shared<writer_log>();
    writer_thread writer;
    recorder frames;
    recorder::time_point now = recorder::time_point() + 1000s;
};

TEST_F(Recorder, PicturesOfAnotherSizeAreNotCounted) {
    frames.tick(now);
    const std::uint32_t pixel = 1;
    frames.painted(&pixel, 1, 1, now + 1ms);
    EXPECT_EQ(frames.pictures(), 0u);
}

TEST_F(Recorder, NothingIsWrittenBeforeItBegins) {
    for (std::uint32_t i = 1; i <= 10; ++i) tick(i);
    let_decide();
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(log->frames(), colours());
    EXPECT_EQ(frames.pictures(), 10u);
    EXPECT_EQ(frames.counts().frames, 0u);
    EXPECT_EQ(frames.first_picture(), recorder::time_point() + 1000s + 5ms);
}

TEST_F(Recorder, WritesExactlyTheFramesAskedFor) {
    tick(1);
    frames.begin(3);
    for (std::uint32_t i = 2; i <= 9; ++i) tick(i);
    EXPECT_TRUE(frames.is_done());
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(log->frames(), (colours{2, 3, 4}));
    const auto counts = frames.counts();
    EXPECT_EQ(counts.frames, 3u);
    EXPECT_EQ(counts.painted, 3u);
    EXPECT_EQ(counts.repeated, 0u);
    EXPECT_EQ(counts.counted, 60ms);
}

TEST_F(Recorder, AStillPageIsItsLastPictureInEveryFrame) {
    tick(7);
    frames.begin(3);
    for (int i = 0; i < 6; ++i) tick(0);
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(log->frames(), (colours{7, 7, 7}));
    // The first frame of them is no repeat: the picture was not in the output before.
    EXPECT_EQ(frames.counts().painted, 1u);
    EXPECT_EQ(frames.counts().repeated, 2u);
}

TEST_F(Recorder, AMissingPictureIsARepeat) {
    tick(1);
    frames.begin(4);
    for (std::uint32_t colour : {2u, 0u, 3u, 4u}) tick(colour);
    let_decide();
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(log->frames(), (colours{2, 2, 3, 4}));
    EXPECT_EQ(frames.counts().repeated, 1u);
    EXPECT_EQ(frames.counts().dropped, 0u);
}

TEST_F(Recorder, ALatePictureIsInItsOwnFrame) {
    tick(1);
    frames.begin(3);
    tick(2);
    frames.tick(now);
    frames.tick(now + 20ms);
    paint(frames, 3, now + 21ms);
    paint(frames, 4, now + 26ms);
    now += 40ms;
    let_decide();
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(log->frames(), (colours{2, 3, 4}));
    EXPECT_EQ(frames.counts().repeated, 0u);
}

// The file keeps its length and its time when the writer is too slow: what finds no room is
// replaced by the picture before it, and counted.
TEST_F(Recorder, PicturesThatFindNoRoomAreDroppedAndTheirFramesRepeat) {
    log->hold_up(true);
    tick(1);
    frames.begin(400);
    for (std::uint32_t i = 0; i < 400; ++i) tick(1000 + i);
    let_decide();
    EXPECT_TRUE(frames.is_done());
    log->hold_up(false);
    EXPECT_TRUE(writer.finish().ok());
    const auto counts = frames.counts();
    EXPECT_EQ(counts.frames, 400u);
    EXPECT_EQ(counts.painted, 400u);
    EXPECT_GT(counts.dropped, 100u);
    EXPECT_EQ(counts.dropped, counts.repeated);
    const auto shown = log->frames();
    EXPECT_EQ(shown.size(), 400u);
    EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end()));
}

TEST_F(Recorder, FramesArePaintedLessDroppedPlusRepeated) {
    tick(1);
    frames.begin(8);
    for (std::uint32_t colour : {2u, 3u, 4u}) tick(colour);
    paint(frames, 5, now - 10ms);  // a second picture of the tick before
    for (std::uint32_t colour : {6u, 0u, 0u, 7u, 8u}) tick(colour);
    let_decide();
    const auto counts = frames.counts();
    EXPECT_EQ(counts.frames, 8u);
    EXPECT_EQ(counts.dropped, 1u);
    EXPECT_EQ(counts.frames, counts.painted - counts.dropped + counts.repeated);
}

TEST_F(Recorder, AsManyFramesAreRepeatedAsTheOutputHas) {
    tick(1);
    frames.begin(10);
    for (std::uint32_t colour : {2u, 2u, 0u, 3u, 3u, 4u, 0u, 4u, 5u, 2u}) tick(colour);
    let_decide();
    EXPECT_TRUE(writer.finish().ok());
    const auto shown = log->frames();
    ASSERT_EQ(shown.size(), 10u);
    std::uint64_t repeated = 0;
    for (std::size_t i = 1; i < shown.size(); ++i) repeated += shown[i] == shown[i - 1];
    const auto counts = frames.counts();
    EXPECT_EQ(counts.repeated, repeated);
    EXPECT_EQ(counts.unchanged, 3u);
    EXPECT_EQ(counts.frames, counts.painted - counts.dropped - counts.unchanged + counts.repeated);
}

TEST_F(Recorder, ASecondPageBeginsWithItsOwnPicture) {
    tick(1);
    frames.begin(2);
    for (std::uint32_t i = 2; i <= 8; ++i) tick(i);
    ASSERT_TRUE(frames.is_done());
    tick(50);
    frames.begin(2);
    EXPECT_FALSE(frames.is_done());
    for (int i = 0; i < 5; ++i) tick(0);
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(log->frames(), (colours{2, 3, 50, 50}));
    EXPECT_EQ(frames.counts().frames, 4u);
    EXPECT_EQ(frames.counts().counted, 80ms);
}

TEST_F(Recorder, EndsWhenItIsToldTo) {
    tick(1);
    frames.begin(1000);
    for (std::uint32_t i = 2; i <= 8; ++i) tick(i);
    frames.end();
    for (std::uint32_t i = 9; i <= 20; ++i) tick(i);
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(log->frames(), (colours{2, 3, 4, 5}));
}

TEST_F(Recorder, WithoutAWriterPicturesAreCountedAlike) {
    recorder measuring(k_width, k_height, *frame_rate::parse("50"), nullptr);
    tick(measuring, 1);
    measuring.begin(4);
    for (std::uint32_t colour : {2u, 0u, 3u, 4u}) tick(measuring, colour);
    for (int i = 0; i < 3; ++i) tick(measuring, 0);
    EXPECT_TRUE(measuring.is_done());
    EXPECT_EQ(measuring.counts().painted, 3u);
    EXPECT_EQ(measuring.counts().repeated, 1u);
    EXPECT_EQ(measuring.intervals().milliseconds_at(0.5), 20.0);
    EXPECT_EQ(measuring.intervals().milliseconds_at(1), 40.0);
}

TEST(IntervalSpread, HasNoIntervalWhenThereIsNone) {
    EXPECT_EQ(interval_spread().milliseconds_at(0.5), 0.0);
}

TEST(IntervalSpread, TellsTheIntervalThatAShareStaysWithin) {
    interval_spread spread;
    for (int i = 1; i <= 100; ++i) spread.add(i * 1ms);
    EXPECT_EQ(spread.milliseconds_at(0.50), 50.0);
    EXPECT_EQ(spread.milliseconds_at(0.99), 99.0);
    EXPECT_EQ(spread.milliseconds_at(1.00), 100.0);
    EXPECT_EQ(spread.milliseconds_at(0), 1.0);
}

TEST(IntervalSpread, VeryLongIntervalsCountAsTheLongest) {
    interval_spread spread;
    spread.add(1h);
    spread.add(-1h);
    EXPECT_EQ(spread.milliseconds_at(1), 999.9);
    EXPECT_EQ(spread.milliseconds_at(0), 0.0);
}

// Of an exact film the pictures between two ticks belong to the second one, however late it comes.
TEST_F(Recorder, AnExactFilmHasEachPictureInItsOwnFrame) {
    recorder exact(k_width, k_height, *frame_rate::parse("50"), &writer, true);
    paint(exact, 9, now);  // before its frames count
    exact.begin(4);
    for (const std::uint32_t colour : {1u, 0u, 3u, 4u}) {
        EXPECT_FALSE(exact.is_done());
        if (colour != 0) paint(exact, colour, now);
        exact.tick(now += 3s);
    }
    EXPECT_TRUE(exact.is_done());
    exact.tick(now += 3s);  // the one behind the last
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(log->frames(), (colours{1, 1, 3, 4}));
    EXPECT_EQ(exact.counts().frames, 4u);
    EXPECT_EQ(exact.counts().repeated, 1u);
    EXPECT_EQ(exact.counts().dropped, 0u);
    EXPECT_FALSE(exact.has_no_memory());
}

// Of a packet of 20 ms that is heard with the picture of each tick, 29 ms after that was painted.
class SoundingRecorder : public Recorder {
protected:
    void sound(float value, recorder::time_point painted) {
        const std::vector<float> samples(960, value);
        const float* const both[] = {samples.data(), samples.data()};
        sounding.heard(both, 2, 960, painted + 29ms);
    }
    void sounding_tick(std::uint32_t number) {
        sounding.tick(now);
        paint(sounding, number, now + 5ms);
        sound(float(number), now + 5ms);
        now += 20ms;
    }

    recorder sounding{k_width, k_height, *frame_rate::parse("50"), &writer, false, true};
};

TEST_F(SoundingRecorder, WhatIsHeardWithAPictureIsInItsFrame) {
    // The time from a tick to its picture is learnt from some of them.
    for (std::uint32_t i = 1; i <= 200; ++i) sounding_tick(1000 + i);
    sounding.begin(20);
    for (std::uint32_t i = 1; i <= 30; ++i) sounding_tick(i);
    EXPECT_TRUE(sounding.is_done());
    EXPECT_FALSE(sounding.is_waiting_for_sound());
    sounding.end_sound();
    EXPECT_TRUE(writer.finish().ok());
    ASSERT_EQ(log->frames().size(), 20u);
    ASSERT_EQ(log->heard.size(), 20u * 960 * 2);
    for (std::size_t frame = 0; frame < 20; ++frame) {
        const std::size_t middle = (frame * 960 + 480) * 2;
        EXPECT_EQ(log->heard[middle], float(log->frames()[frame])) << frame;
    }
}

TEST_F(SoundingRecorder, ASilentPageHasAsMuchSilenceAsFrames) {
    sounding.begin(10);
    for (int i = 0; i < 14; ++i) {
        sounding.tick(now);
        paint(sounding, std::uint32_t(i + 1), now + 5ms);
        now += 20ms;
    }
    sounding.end_sound();
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(log->heard, std::vector<float>(std::size_t(10) * 960 * 2));
}

TEST_F(SoundingRecorder, OneWithoutSoundHearsNothing) {
    const std::vector<float> samples(480, 1);
    const float* const both[] = {samples.data(), samples.data()};
    frames.begin(2);
    for (std::uint32_t i = 1; i <= 6; ++i) {
        frames.heard(both, 2, 480, now);
        tick(i);
    }
    frames.end_sound();
    EXPECT_TRUE(writer.finish().ok());
    EXPECT_EQ(log->heard.size(), 0u);
}

}  // namespace
}  // namespace pennywort::host
