// tests/host/exact_sound_test.cpp - the sound of a page by its own clock, laid along its film.
#include "host/render/exact_sound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <numeric>
#include <ostream>
#include <string>
#include <vector>

#include "host/output/writer_thread.h"
#include "host/render/recorder.h"
#include "tests/host/fake_writer.h"
#include "tests/support/fake_clock.h"

namespace pennywort::host {
namespace {

// Sample n of the page is n on the left, and -n on the right.
class ExactSound : public testing::Test {
protected:
    void hear(std::int64_t page, long frames) {
        std::vector<float> left(static_cast<std::size_t>(frames));
        std::iota(left.begin(), left.end(), static_cast<float>(page));
        std::vector<float> right;
        for (const float sample : left) right.push_back(-sample);
        const float* const both[] = {left.data(), right.data()};
        sound.hear(both, 2, frames, page);
    }
    std::vector<float> take(std::int64_t film) {
        std::vector<float> out;
        sound.take(film, out);
        return out;
    }

    exact_sound sound;
};

using floats = std::vector<float>;

TEST_F(ExactSound, IsAtItsPlaceWhateverPiecesItComesIn) {
    for (const long piece : {1L, 3L, 48L, 960L}) {
        sound.begin(0, 0);
        floats all;
        for (std::int64_t at = 0; at < 960; at += piece) {
            hear(at, std::min<long>(piece, static_cast<long>(960 - at)));
            if (at % 7 == 0) sound.take(at, all);
        }
        sound.finish(960, all);
        ASSERT_EQ(all.size(), 960u * 2);
        for (std::size_t i = 0; i < 960; ++i) {
            ASSERT_EQ(all[2 * i], float(i)) << piece;
            ASSERT_EQ(all[2 * i + 1], -float(i)) << piece;
        }
    }
}

TEST_F(ExactSound, WhatNeverCameIsSilence) {
    sound.begin(0, 0);
    hear(2, 1);
    EXPECT_EQ(take(4), (floats{0, 0, 0, 0, 2, -2, 0, 0}));
    EXPECT_EQ(take(5), (floats{0, 0}));
    EXPECT_EQ(take(5), floats{});
}

TEST_F(ExactSound, APagesPositionIsShiftedToItsFilms) {
    sound.begin(10, 100);
    hear(98, 4);
    EXPECT_EQ(take(13), (floats{100, -100, 101, -101, 0, 0})) << "what is before it is not in it";
}

TEST_F(ExactSound, WhatComesTooLateOrFromNowhereIsLeftOut) {
    sound.begin(0, 0);
    EXPECT_EQ(take(2).size(), 4u);
    hear(1, 2);
    EXPECT_EQ(take(3), (floats{2, -2}));
    hear(std::int64_t(1) << 40, 1);
    hear(-(std::int64_t(1) << 40), 1);
    EXPECT_EQ(take(4), (floats{0, 0}));
}

TEST_F(ExactSound, NothingCountsBeforeItBeginsOrBehindItsEnd) {
    hear(0, 2);
    EXPECT_EQ(take(2), floats{});
    sound.begin(0, 0);
    floats rest;
    sound.finish(1, rest);
    EXPECT_EQ(rest, (floats{0, 0}));
    hear(0, 4);
    EXPECT_EQ(take(4), floats{});
}

TEST_F(ExactSound, OneChannelGivesBothAndOfMoreTheFirstTwoCount) {
    sound.begin(0, 0);
    const float one[] = {7}, other[] = {8}, third[] = {9};
    const float* const three[] = {one, other, third};
    sound.hear(three, 1, 1, 0);
    sound.hear(three, 3, 1, 1);
    EXPECT_EQ(take(2), (floats{7, 7, 7, 8}));
}

// --- with the frames

struct sound_rate_case {
    const char* rate;
    std::uint64_t before;  // frames of the film before the piece
    std::uint64_t frames;
    std::int64_t samples;
};
void PrintTo(const sound_rate_case& c, std::ostream* out) {
    *out << c.rate << " from " << c.before;
}

class ExactRecorder : public testing::TestWithParam<sound_rate_case> {
protected:
    // What the page has told when a frame is over: all but the last 4 ms before it.
    void tell_before(recorder& frames, std::uint64_t frame, const frame_rate& rate) {
        const auto moment = rate.time_of(frame);
        const std::int64_t until = moment.count() * 48 / 1'000'000 - 175;
        if (until <= m_told) return;
        const std::vector<float> ones(static_cast<std::size_t>(until - m_told), 1);
        const float* const both[] = {ones.data(), ones.data()};
        frames.heard_exactly(both, 2, static_cast<long>(ones.size()), m_told);
        m_told = until;
    }

    std::int64_t m_told = 0;
};

TEST_P(ExactRecorder, GivesAsManySamplesAsTheFramesLast) {
    const sound_rate_case& one = GetParam();
    const frame_rate rate = *frame_rate::parse(one.rate);
    const auto log = std::make_shared<writer_log>();
    writer_thread writer(std::make_unique<fake_writer>(log));
    recorder frames(4, 2, rate, &writer, true, true, one.before);
    const std::vector<std::uint32_t> pixels(8);
    tests::fake_clock clock;
    for (std::uint64_t frame = 0; frame < one.before + one.frames + 2; ++frame) {
        if (frame == one.before) frames.begin(one.frames, frame);
        tell_before(frames, frame, rate);
        frames.painted(pixels.data(), 4, 2, clock.now());
        frames.tick(clock.now());
    }
    EXPECT_TRUE(frames.is_done());
    frames.end_sound();
    EXPECT_TRUE(writer.finish().ok());
    ASSERT_EQ(log->heard.size(), static_cast<std::size_t>(one.samples) * 2);
    EXPECT_EQ(log->heard, std::vector<float>(log->heard.size(), 1)) << "none of them is missing";
}

// Two pieces have as many as the whole, which alone may be a sample more or less.
constexpr sound_rate_case k_sound_rates[] = {
    {"50", 0, 250, 240'000},      {"23.976", 0, 1, 2002},     {"23.976", 0, 1000, 2'002'000},
    {"59.94", 0, 1, 801},         {"59.94", 0, 7, 5606},      {"59.94", 0, 3, 2402},
    {"59.94", 3, 4, 5606 - 2402}, {"29.97", 0, 300, 480'480}, {"240", 0, 240, 48'000},
    {"1", 0, 3, 144'000},
};
INSTANTIATE_TEST_SUITE_P(Of, ExactRecorder, testing::ValuesIn(k_sound_rates));

TEST(ExactRecorderPages, EachPageBeginsWithItsOwnSound) {
    const auto log = std::make_shared<writer_log>();
    writer_thread writer(std::make_unique<fake_writer>(log));
    recorder frames(4, 2, *frame_rate::parse("50"), &writer, true, true);
    const std::vector<std::uint32_t> pixels(8);
    tests::fake_clock clock;
    for (int page = 1; page <= 2; ++page) {
        frames.begin(5, page == 1 ? 0 : 3);
        const std::vector<float> samples(20 * 960, float(page));
        const float* const both[] = {samples.data(), samples.data()};
        frames.heard_exactly(both, 2, 20 * 960, 0);
        for (int i = 0; i < 7; ++i) {
            frames.painted(pixels.data(), 4, 2, clock.now());
            frames.tick(clock.now());
        }
    }
    frames.end_sound();
    EXPECT_TRUE(writer.finish().ok());
    ASSERT_EQ(log->heard.size(), 10u * 960 * 2);
    EXPECT_EQ(log->heard[5 * 960 * 2 - 1], 1);
    EXPECT_EQ(log->heard[5 * 960 * 2], 2);
}

}  // namespace
}  // namespace pennywort::host
