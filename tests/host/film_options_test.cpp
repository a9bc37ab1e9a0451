// tests/host/film_options_test.cpp - what the options of a film come to: its quality, ffmpeg's own
// options, time code, fields, fill and key.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "host/output/movie_writer.h"
#include "tests/host/film_fixture.h"

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;

picture_ptr noise(long width, long height) {
    auto made = std::make_shared<picture>(width, height);
    std::uint32_t value = 1;
    for (std::size_t i = 0; i < made->pixel_count(); ++i) {
        value = value * 1664525 + 1013904223;
        made->pixels[i] = value >> 8 | 0xFF000000;
    }
    return made;
}

class MovieSettings : public NeedsFfmpeg {
protected:
    static std::vector<picture_ptr> five_frames() {
        std::vector<picture_ptr> frames;
        for (std::uint32_t i = 0; i < 5; ++i) {
            frames.push_back(picture_of(0xFF20C840 + i * 40, k_width, k_height));
        }
        return frames;
    }
    std::uintmax_t size_with(const std::string& name, const film_settings& film) {
        auto format = movie_format(false);
        format.rate = *frame_rate::parse("50");
        format.film = film;
        const auto made =
            make(target_of(name), format, std::vector<picture_ptr>(4, noise(k_width, k_height)));
        EXPECT_TRUE(made.ok()) << name << ": " << made.text();
        return std::filesystem::file_size(folder.path(name));
    }
};

TEST_F(MovieSettings, ABetterQualityTakesMoreRoom) {
    const std::pair<const char*, const char*> cases[] = {
        {"a.mkv", ""}, {"a.mp4", "hevc"}, {"b.mp4", "av1"}, {"a.webm", ""},
        {"a.mov", ""}, {"a.jpg", ""},     {"a.webp", ""},
    };
    for (const auto& [name, codec] : cases) {
        film_settings poor, good;
        poor.codec = good.codec = codec;
        poor.quality = 20;
        good.quality = 95;
        EXPECT_LT(size_with(name, poor), size_with(name, good)) << name;
    }
}

TEST_F(MovieSettings, OptionsForFfmpegCountMoreThanOurs) {
    film_settings film;
    film.ffmpeg_options = {"-metadata", "title=two words", "-pix_fmt", "yuv422p"};
    size_with("a.mkv", film);
    const auto about = output_of(
        "ffprobe -v error -show_streams -show_format 'file:" + folder.path("a.mkv") + "'");
    expect_part(about, "TAG:title=two words");
    expect_part(about, "pix_fmt=yuv422p");
}

TEST_F(MovieSettings, OptionsThatFfmpegRefusesAreToldBeforeTheFirstFrame) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"-nonsense", "1"}, "--ffmpeg-options: ffmpeg says: Unrecognized option 'nonsense'"},
        {{"-preset", "wrong"},
         "--ffmpeg-options: ffmpeg says: x264 [error]: invalid preset 'wrong'"},
        {{"-vf", "nofilter"}, "--ffmpeg-options: ffmpeg says: "},
    };
    for (const auto& [options, words] : cases) {
        auto format = movie_format(false);
        format.film.ffmpeg_options = options;
        movie_writer writer(output_kind::mkv, folder.path("a.mkv"), format, {20s});
        const auto begun = writer.begin();
        EXPECT_EQ(begun.what(), outcome::kind::refused) << begun.text();
        EXPECT_EQ(begun.text().substr(0, std::string(words).size()), words);
        EXPECT_EQ(begun.text().find(" @ 0x"), std::string::npos) << begun.text();
        EXPECT_FALSE(folder.has("a.mkv"));
    }
}

// The film can be played, and would be taken for the one that was asked for.
TEST_F(MovieSettings, OptionsThatTakeFramesAwayAreAFailure) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"-ss", "1"}, "0 of 5 frames"},      {{"-r", "10"}, "of 5 frames"},
        {{"-t", "0.04"}, "of 5 frames"},      {{"-frames:v", "2"}, "2 of 5 frames"},
        {{"-vf", "fps=25"}, "3 of 5 frames"},
    };
    for (const auto& [options, words] : cases) {
        for (const char* name : {"a.mkv", "a.mp4", "a.mov"}) {
            auto format = movie_format(false);
            format.rate = *frame_rate::parse("50");
            format.film.ffmpeg_options = options;
            const auto made = make(target_of(name), format, five_frames());
            EXPECT_EQ(made.what(), outcome::kind::failed) << name << options[0];
            EXPECT_NE(made.text().find(words), std::string::npos) << made.text();
            EXPECT_NE(made.text().find("--ffmpeg-options"), std::string::npos) << made.text();
        }
    }
}

TEST_F(MovieSettings, OptionsThatLeaveThePictureOutAreAFailure) {
    auto format = movie_format(false);
    format.has_sound = true;
    format.film.ffmpeg_options = {"-vn"};
    const auto writer = make_page_writer(target_of("a.mkv"), nullptr, format, nullptr);
    ASSERT_TRUE(writer->begin().ok());
    for (const auto& frame : five_frames()) {
        EXPECT_TRUE(writer->show(frame).ok());
        EXPECT_TRUE(writer->hear(std::vector<float>(2 * 801)).ok());
    }
    const auto finished = writer->finish();
    EXPECT_NE(finished.text().find("0 of 5 frames"), std::string::npos) << finished.text();
}

TEST_F(MovieSettings, OptionsThatKeepEachFrameAreNone) {
    const std::vector<std::string> k_good[] = {
        {"-vf", "hflip"}, {"-r", "100"}, {"-x264-params", "keyint=1"}, {"-an"}};
    for (const auto& options : k_good) {
        auto format = movie_format(false);
        format.rate = *frame_rate::parse("50");
        format.film.ffmpeg_options = options;
        const auto made = make(target_of("a.mkv"), format, five_frames());
        EXPECT_TRUE(made.ok()) << options[0] << made.text();
    }
}

TEST_F(MovieSettings, ATimecodeIsInTheFilm) {
    for (const char* name : {"a.mov", "a.mp4", "a.mkv"}) {
        film_settings film;
        film.timecode = "10:00:00:12";
        size_with(name, film);
        const auto about = output_of(
            "ffprobe -v error -show_streams -show_format 'file:" + folder.path(name) + "'");
        expect_part(about,
                    name == std::string("a.mkv") ? "TIMECODE=10:00:00:12" : "timecode=10:00:00:12");
        if (name != std::string("a.mkv")) expect_part(about, "codec_tag_string=tmcd");
    }
}

// The first frame is white, the second one is black: so are the lines of the two fields.
TEST_F(MovieSettings, FieldsAreTheLinesOfTwoFrames) {
    const std::pair<const char*, const char*> cases[] = {
        {"a.mkv", ""}, {"b.mkv", "ffv1"}, {"a.mov", ""}, {"a.mp4", ""}};
    for (const auto& [name, codec] : cases) {
        auto format = movie_format(false);
        format.is_interlaced = true;
        format.rate = *frame_rate::parse("50");
        format.film.codec = codec;
        std::vector<picture_ptr> frames;
        for (int i = 0; i < 10; ++i) {
            frames.push_back(picture_of(i % 2 == 0 ? 0xFFFFFFFF : 0xFF000000, k_width, k_height));
        }
        const auto made = make(target_of(name), format, frames);
        ASSERT_TRUE(made.ok()) << name << made.text();
        const auto file = folder.path(name);
        const auto about = described(file);
        expect_part(about, "nb_read_frames=5");
        expect_part(about, "r_frame_rate=25/1");
        EXPECT_TRUE(about.find("field_order=tt") != about.npos ||
                    about.find("field_order=tb") != about.npos)
            << name << about;
        expect_near(pixel_of(file, k_width, k_height, 20, 20), {255, 255, 255, 255}, 6);
        expect_near(pixel_of(file, k_width, k_height, 20, 21), {0, 0, 0, 255}, 6);
    }
}

TEST_F(MovieSettings, FillAndKeyBelongTogether) {
    auto format = movie_format(true);
    const auto fill = target_of("fill.mov");
    const auto key = target_of("key.mov");
    const auto writer = make_page_writer(fill, &key, format, nullptr);
    ASSERT_TRUE(writer->begin().ok());
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(writer->show(half_there()).ok());
    const auto finished = writer->finish();
    ASSERT_TRUE(finished.ok()) << finished.text();
    for (const char* name : {"fill.mov", "key.mov"}) {
        expect_part(described(folder.path(name)), "nb_read_frames=3");
        expect_part(described(folder.path(name)), k_bt709);
    }
    expect_near(pixel_of(folder.path("fill.mov"), k_width, k_height, 8, 24),
                {0x20, 0x64, 0x10, 255}, 4);
    expect_near(pixel_of(folder.path("key.mov"), k_width, k_height, 8, 24), {0x80, 0x80, 0x80, 255},
                3);
    expect_near(pixel_of(folder.path("key.mov"), k_width, k_height, 56, 24), {0, 0, 0, 255}, 2);
}

}  // namespace
}  // namespace pennywort::host
