// tests/host/sound_track_test.cpp - packets that come too early, too late, unevenly or not at all,
// and the place of their samples in the film.
#include "host/render/sound_track.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;

constexpr long k_packet = 480;  // 10 ms
const sound_track::time_point k_sound_start{1000s};

class SoundTrack : public testing::Test {
protected:
    void SetUp() override { track.begin(0, k_sound_start); }
    // 10 ms of one value.
    void packet(float value, std::chrono::microseconds at, long frames = k_packet) {
        const std::vector<float> left(static_cast<std::size_t>(frames), value);
        const std::vector<float> right(static_cast<std::size_t>(frames), -value);
        const std::array<const float*, 2> both{left.data(), right.data()};
        track.packet(both.data(), 2, frames, k_sound_start + at);
    }
    // Of the left channel, from the first sample of the film on.
    std::vector<float> all(std::int64_t samples) {
        track.finish(samples, out);
        std::vector<float> left;
        for (std::size_t i = 0; i < out.size(); i += 2) {
            EXPECT_EQ(out[i + 1], -out[i]);
            left.push_back(out[i]);
        }
        return left;
    }
    static void expect_run(const std::vector<float>& samples, std::size_t from, std::size_t to,
                           float value) {
        for (std::size_t i = from; i < to; ++i) ASSERT_EQ(samples.at(i), value) << i;
    }

    sound_track track;
    std::vector<float> out;
};

TEST_F(SoundTrack, OfASilentPageIsSilence) {
    const auto samples = all(1000);
    ASSERT_EQ(samples.size(), 1000u);
    expect_run(samples, 0, 1000, 0);
}

TEST_F(SoundTrack, PacketsFollowEachOtherWithoutASeam) {
    for (int i = 0; i < 10; ++i) packet(float(i + 1), i * 10ms + (i % 3 - 1) * 1500us);
    const auto samples = all(4800);
    ASSERT_EQ(samples.size(), 4800u);
    // The first one is 1.5 ms too early, which is cut, and the others follow it.
    constexpr std::size_t k_cut = 72;
    for (std::size_t i = 0; i < 10; ++i) {
        expect_run(samples, i == 0 ? 0 : i * k_packet - k_cut, (i + 1) * k_packet - k_cut,
                   float(i + 1));
    }
}

TEST_F(SoundTrack, ThePlaceOfAStreamIsThatOfItsFirstPacket) {
    packet(1, 100ms);
    const auto samples = all(9600);
    ASSERT_EQ(samples.size(), 9600u);
    expect_run(samples, 0, 4800, 0);
    expect_run(samples, 4800, 5280, 1);
    expect_run(samples, 5280, 9600, 0);
}

TEST_F(SoundTrack, WhatBeganBeforeTheFilmIsCut) {
    packet(1, -15ms);
    packet(2, -5ms);
    const auto samples = all(1000);
    expect_run(samples, 0, 240, 2);
    expect_run(samples, 240, 1000, 0);
}

TEST_F(SoundTrack, AGapOfTheStreamIsSilence) {
    packet(1, 0ms);
    track.pause();
    packet(2, 50ms);
    packet(3, 200ms);
    const auto samples = all(48000);
    expect_run(samples, 0, 480, 1);
    expect_run(samples, 480, 2400, 0);
    expect_run(samples, 2400, 2880, 2);
    expect_run(samples, 2880, 9600, 0);
    expect_run(samples, 9600, 10080, 3);
}

// The clock of the sound is 0.1 percent slower than ours: 120 ms in two minutes.
TEST_F(SoundTrack, AStreamThatRunsAwayIsBroughtBack) {
    std::int64_t marked = 0;
    for (int i = 0; i < 12'000; ++i) {
        const auto at = std::chrono::microseconds(std::int64_t(i) * 10'010);
        packet(i == 11'999 ? 1.0f : 0.5f, at);
        if (i % 1000 == 0) track.take(std::int64_t(i) * k_packet, out);
    }
    const auto samples = all(std::int64_t(12'100) * k_packet * 1001 / 1000);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (samples[i] == 1.0f && marked == 0) marked = std::int64_t(i);
    }
    EXPECT_NEAR(double(marked), 11'999 * 480.48, 480) << "10 ms after two minutes";
}

// The first packet of a stream stood 5 ms too early.
TEST_F(SoundTrack, SilenceIsWhereAStreamIsBroughtBack) {
    packet(0, -5ms);
    for (int i = 0; i < 300; ++i) packet(i < 200 ? 0.0f : 1.0f, 10ms + i * 10ms);
    const auto samples = all(4 * 48'000);
    std::size_t first = 0;
    while (samples.at(first) == 0) ++first;
    EXPECT_NEAR(double(first), 48 * 2010, 96);
    expect_run(samples, first, first + 100 * k_packet, 1);
}

TEST_F(SoundTrack, SilenceIsHandedOutOnceItIsCertain) {
    track.take(24'000, out);
    EXPECT_TRUE(out.empty());
    track.take(48'000, out);
    EXPECT_EQ(out.size(), 2u * 24'000);
    // Half of this one comes too late.
    packet(1, 495ms);
    track.take(48'000, out);
    EXPECT_EQ(out.size(), 2u * 24'240);
    EXPECT_EQ(out.back(), -1);
}

TEST_F(SoundTrack, NoMoreIsHandedOutThanTheFilmHasFrames) {
    packet(1, 0ms);
    packet(2, 10ms);
    track.take(500, out);
    EXPECT_EQ(out.size(), 1000u);
    track.finish(700, out);
    EXPECT_EQ(out.size(), 1400u);
}

TEST_F(SoundTrack, OfTheNextPageStandsBehindThatOfTheFirst) {
    packet(1, 0ms);
    track.finish(4800, out);
    packet(9, 20ms);  // between two pages nothing counts
    track.begin(4800, k_sound_start + 5s);
    packet(2, 5s + 10ms);
    const auto samples = all(9600);
    ASSERT_EQ(samples.size(), 9600u);
    expect_run(samples, 0, 480, 1);
    expect_run(samples, 480, 5280, 0);
    expect_run(samples, 5280, 5760, 2);
}

TEST_F(SoundTrack, APacketOfAnotherDayIsNone) {
    packet(1, std::chrono::hours(24));
    packet(1, -std::chrono::hours(24));
    packet(2, 0ms);
    const auto samples = all(960);
    expect_run(samples, 0, 480, 2);
    expect_run(samples, 480, 960, 0);
}

TEST_F(SoundTrack, OneChannelIsBoth) {
    const std::vector<float> mono(10, 0.5f);
    const float* const only = mono.data();
    track.packet(&only, 1, 10, k_sound_start);
    track.finish(10, out);
    EXPECT_EQ(out, std::vector<float>(20, 0.5f));
}

TEST_F(SoundTrack, SaysWhatIsStillToCome) {
    EXPECT_FALSE(track.is_missing(480));
    packet(1, 0ms);
    EXPECT_FALSE(track.is_missing(480));
    EXPECT_TRUE(track.is_missing(481));
    track.pause();
    EXPECT_FALSE(track.is_missing(481));
}

}  // namespace
}  // namespace pennywort::host
