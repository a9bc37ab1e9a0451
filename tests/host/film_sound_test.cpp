// tests/host/film_sound_test.cpp - the sound of the films that ffmpeg makes, read back.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/host/film_fixture.h"

namespace pennywort::host {
namespace {

// Silence, and from the tenth frame on a tone of 1 kHz on the left and 2 kHz on the right.
std::vector<float> tone_from(std::size_t first, std::size_t samples) {
    std::vector<float> made;
    for (std::size_t i = 0; i < samples; ++i) {
        const double seconds = double(i) / 48'000;
        const double loud = i < first ? 0 : 0.5;
        made.push_back(float(loud * std::sin(2 * 3.14159265358979 * 1000 * seconds)));
        made.push_back(float(loud * std::sin(2 * 3.14159265358979 * 2000 * seconds)));
    }
    return made;
}

// How often a channel crosses zero upwards between two samples of it.
int crossings(const std::vector<float>& samples, std::size_t channel, std::size_t from,
              std::size_t to) {
    int count = 0;
    for (std::size_t i = from; i + 1 < to; ++i) {
        if (samples[i * 2 + channel] <= 0 && samples[(i + 1) * 2 + channel] > 0) ++count;
    }
    return count;
}

std::vector<float> sound_of(const std::string& file) {
    const auto bytes =
        output_of("ffmpeg -v error -i 'file:" + file + "' -f f32le -ar 48000 -ac 2 -");
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    return samples;
}

class FilmSound : public NeedsFfmpeg, public testing::WithParamInterface<const char*> {};

// 2 s of film, whose tone begins at 200 ms.
TEST_P(FilmSound, IsInTheFilmAtItsTime) {
    auto format = movie_format(false);
    format.rate = *frame_rate::parse("50");
    format.has_sound = true;
    const auto writer = make_page_writer(target_of(GetParam()), nullptr, format, nullptr);
    const auto begun = writer->begin();
    ASSERT_TRUE(begun.ok()) << begun.text();
    const auto tone = tone_from(9600, 96'000);
    for (std::size_t i = 0; i < 100; ++i) {
        ASSERT_TRUE(
            writer->show(picture_of(0xFF20C840 + std::uint32_t(i), k_width, k_height)).ok());
        // It comes three frames behind its pictures.
        if (i < 3) continue;
        const auto* const at = tone.data() + (i - 3) * 960 * 2;
        ASSERT_TRUE(writer->hear({at, 960 * 2}).ok());
    }
    ASSERT_TRUE(writer->hear({tone.data() + 97 * 960 * 2, 3 * 960 * 2}).ok());
    const auto finished = writer->finish();
    ASSERT_TRUE(finished.ok()) << finished.text();

    if (std::string(GetParam()) != "a.wav") {
        const auto about = described(folder.path(GetParam()));
        expect_part(about, "nb_read_frames=100\n");
        expect_part(about, "r_frame_rate=50/1");
        expect_part(about, "sample_rate=48000");
    }
    const auto heard = sound_of(folder.path(GetParam()));
    ASSERT_NEAR(double(heard.size()) / 2, 96'000, 1100);
    std::size_t first = 0;
    while (first < heard.size() / 2 && std::abs(heard[first * 2 + 1]) < 0.1f) ++first;
    EXPECT_NEAR(double(first), 9600, 96);  // 2 ms
    EXPECT_NEAR(crossings(heard, 0, 24'000, 72'000), 1000, 1);
    EXPECT_NEAR(crossings(heard, 1, 24'000, 72'000), 2000, 2);
}

INSTANTIATE_TEST_SUITE_P(All, FilmSound,
                         testing::Values("a.mkv", "a.mov", "a.mp4", "a.webm", "a.wav"),
                         [](const auto& one) { return std::string(one.param).substr(2); });

TEST_F(NeedsFfmpeg, AStreamForAPipeHasItsSound) {
    auto format = movie_format(false);
    format.has_sound = true;
    output_target target;
    target.kind = output_kind::matroska;
    target.path = folder.path("stream");
    const auto writer = make_page_writer(target, nullptr, format, nullptr);
    ASSERT_TRUE(writer->begin().ok());
    const auto tone = tone_from(0, 801 * 10);
    for (std::size_t i = 0; i < 10; ++i) {
        ASSERT_TRUE(writer->show(picture_of(0xFF20C840, k_width, k_height)).ok());
        ASSERT_TRUE(writer->hear({tone.data() + i * 801 * 2, 801 * 2}).ok());
    }
    ASSERT_TRUE(writer->finish().ok());
    expect_part(described(target.path), "codec_name=pcm_f32le");
    EXPECT_EQ(sound_of(target.path), tone);
}

}  // namespace
}  // namespace pennywort::host
