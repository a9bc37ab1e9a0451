// tests/host/film_kinds_test.cpp - each kind of film and picture that ffmpeg makes, read back: its
// frames, its rate, its colours, its alpha, its size.
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host/output/film_codecs.h"
#include "host/output/film_timecode.h"
#include "tests/host/film_fixture.h"
#include "tests/support/effort.h"

namespace pennywort::host {
namespace {

struct movie_case {
    const char* name;
    output_kind kind;
    const char* file;
    bool transparent;
    const char* asked;  // as --codec has it
    const char* codec;
    const char* tags;     // what has to be in the stream's description
    const char* decoder;  // where ffmpeg's usual one loses something
    const char* rate;
    int tolerance;  // of a colour channel read back, in levels
};
void PrintTo(const movie_case& c, std::ostream* out) { *out << c.name; }

constexpr const char* k_50 = "r_frame_rate=50/1";
constexpr const char* k_59_94 = "r_frame_rate=60000/1001";

constexpr movie_case k_movies[] = {
    {"H264", output_kind::mkv, "a.mkv", false, "", "h264", k_bt709, "", k_50, 3},
    {"Ffv1WithAlpha", output_kind::mkv, "b.mkv", true, "", "ffv1", "pix_fmt=bgra", "", k_50, 0},
    {"Ffv1", output_kind::mkv, "b.mkv", false, "ffv1", "ffv1", "pix_fmt=bgr0", "", k_50, 0},
    {"Vp9WithAlphaInMkv", output_kind::mkv, "b.mkv", true, "vp9", "vp9", k_bt709, k_vpx, k_50, 3},
    {"Av1InMkv", output_kind::mkv, "b.mkv", false, "av1", "av1", k_bt709, "", k_50, 3},
    {"ProResInMkv", output_kind::mkv, "b.mkv", true, "prores", "prores", k_bt709, "", k_50, 3},
    {"ProRes422", output_kind::mov, "c.mov", false, "", "prores", k_bt709, "", k_59_94, 3},
    {"ProRes4444", output_kind::mov, "d.mov", true, "", "prores", "pix_fmt=yuva444p", "", k_59_94,
     3},
    {"H264InMov", output_kind::mov, "d.mov", false, "h264", "h264", k_bt709, "", k_59_94, 3},
    {"AColonInTheName", output_kind::mov, "http:e.mov", true, "", "prores", k_bt709, "", k_59_94,
     3},
    {"Mp4", output_kind::mp4, "f.mp4", false, "", "h264", k_bt709, "", k_59_94, 3},
    {"Mp4HasQuarterColour", output_kind::mp4, "f.mp4", false, "h264", "h264", "pix_fmt=yuv420p", "",
     k_59_94, 3},
    {"HevcForApple", output_kind::mp4, "g.mp4", false, "hevc", "hevc", "codec_tag_string=hvc1", "",
     k_59_94, 3},
    {"Hevc", output_kind::mp4, "g.mp4", false, "hevc", "hevc", k_bt709, "", k_59_94, 3},
    {"Av1", output_kind::mp4, "h.mp4", false, "av1", "av1", k_bt709, "", k_59_94, 3},
    {"Webm", output_kind::webm, "i.webm", false, "", "vp9", k_bt709, "", k_50, 3},
    {"WebmWithAlpha", output_kind::webm, "j.webm", true, "", "vp9", "TAG:alpha_mode=1", k_vpx, k_50,
     3},
    {"WebmWithAlphaAndColours", output_kind::webm, "j.webm", true, "", "vp9", k_bt709, k_vpx, k_50,
     3},
    {"Gif", output_kind::gif, "k.gif", false, "", "gif", "pix_fmt=bgra", "", k_50, 4},
    {"GifWithAlpha", output_kind::gif, "l.gif", true, "", "gif", "pix_fmt=bgra", "", k_50, 4},
};

class Movie : public NeedsFfmpeg, public testing::WithParamInterface<movie_case> {};

// A colour that BT.601 would turn into another one.
TEST_P(Movie, HasItsFramesItsRateAndItsColours) {
    const auto& c = GetParam();
    auto format = movie_format(c.transparent);
    format.film.codec = c.asked;
    // Matroska counts in milliseconds, and a film of five frames does not show what they stand for.
    if (c.rate == k_50) format.rate = *frame_rate::parse("50");
    const std::vector<picture_ptr> frames(5, picture_of(0xFF20C840, k_width, k_height));
    const auto made = make(target_of(c.file), format, frames);
    ASSERT_TRUE(made.ok()) << made.text();

    const auto about = described(folder.path(c.file));
    for (const std::string& part : {std::string("codec_name=") + c.codec, std::string(c.tags),
                                    std::string(c.rate), std::string("nb_read_frames=5")}) {
        expect_part(about, part);
    }
    expect_near(
        pixel_of(folder.path(c.file), k_width, k_height, k_width / 2, k_height / 2, c.decoder),
        {0x40, 0xC8, 0x20, 0xFF}, c.tolerance);
}

INSTANTIATE_TEST_SUITE_P(All, Movie, testing::ValuesIn(k_movies),
                         [](const auto& one) { return std::string(one.param.name); });

TEST_F(NeedsFfmpeg, AFilmThatIsMadeTwiceIsTheSameFile) {
    const std::vector<picture_ptr> frames(5, picture_of(0xFF20C840, k_width, k_height));
    for (const bool transparent : {false, true}) {
        for (const char* ending : {".mkv", ".mov", ".webm", ".gif"}) {
            const std::string first = std::string("first") + ending;
            const std::string second = std::string("second") + ending;
            for (const std::string& name : {first, second}) {
                const auto made = make(target_of(name), movie_format(transparent), frames);
                ASSERT_TRUE(made.ok()) << made.text();
            }
            EXPECT_TRUE(folder.read(first) == folder.read(second)) << ending << transparent;
        }
    }
}

struct rate_case {
    const char* name;
    const char* file;
    const char* asked;  // as --codec has it
    bool has_sound;
    bool is_interlaced;
    const char* timecode;
    double grain;  // seconds that its own times may be off
};
void PrintTo(const rate_case& c, std::ostream* out) { *out << c.name; }

constexpr rate_case k_rate_cases[] = {
    {"Mov", "a.mov", "", false, false, "", 0.0001},
    {"MovWithTimecode", "a.mov", "", false, false, "10:00:00:04", 0.0001},
    {"MovWithSound", "a.mov", "h264", true, false, "", 0.0001},
    {"MovWithFields", "a.mov", "", false, true, "", 0.0001},
    {"Mp4", "a.mp4", "", false, false, "", 0.0001},
    {"Mp4WithTimecode", "a.mp4", "", false, false, "10:00:00:04", 0.0001},
    {"Mp4WithSound", "a.mp4", "", true, false, "", 0.0001},
    {"Hevc", "a.mp4", "hevc", false, false, "", 0.0001},
    {"Mkv", "a.mkv", "", false, false, "", 0.0015},
    {"MkvWithSound", "a.mkv", "", true, false, "", 0.0015},
    {"Ffv1", "a.mkv", "ffv1", false, false, "", 0.0015},
    {"Webm", "a.webm", "", false, false, "", 0.0015},
    {"Gif", "a.gif", "", false, false, "", 0.02},
    {"Y4m", "a.y4m", "", false, false, "", 0.0001},
};

class FilmRate : public NeedsFfmpeg, public testing::WithParamInterface<rate_case> {
protected:
    frame_format format_at(const frame_rate& rate) const {
        auto format = movie_format(false);
        format.rate = rate;
        format.is_interlaced = GetParam().is_interlaced;
        format.has_sound = GetParam().has_sound;
        format.film.codec = GetParam().asked;
        format.film.timecode = GetParam().timecode;
        return format;
    }
    bool is_possible(const output_target& target, const frame_format& format) const {
        const auto film = film_format_of(format);
        if (!film_complaint(target, film).empty()) return false;
        return film.film.timecode.empty() ||
               timecode_complaint(film.film.timecode, film.rate).empty();
    }
    outcome make_frames(const output_target& target, const frame_format& format,
                        std::uint64_t count) const {
        const auto writer = make_page_writer(target, nullptr, format, nullptr);
        if (auto begun = writer->begin(); !begun.ok()) return begun;
        std::int64_t heard = 0;
        for (std::uint64_t i = 0; i < count; ++i) {
            const auto frame = picture_of(0xFF204060 + std::uint32_t(i % 100), k_width, k_height);
            if (auto shown = writer->show(frame); !shown.ok()) return shown;
            if (!format.has_sound) continue;
            const std::int64_t until = format.rate.time_of(i + 1).count() * 48 / 1'000'000;
            const std::vector<float> silence(std::size_t(until - heard) * 2);
            if (auto said = writer->hear(silence); !said.ok()) return said;
            heard = until;
        }
        return writer->finish();
    }
};

double quotient(const std::string& text) {
    const auto slash = text.find('/');
    return std::stod(text) / std::stod(text.substr(slash + 1));
}

std::string value_in(const std::string& described_stream, const std::string& name) {
    const auto at = described_stream.find(name + "=");
    if (at == described_stream.npos) return "0/1";
    const auto begin = at + name.size() + 1;
    return described_stream.substr(begin, described_stream.find('\n', begin) - begin);
}

// A rate that is one thousandth too high is 3.6 s an hour.
TEST_P(FilmRate, IsTheOneThatWasAskedFor) {
    const auto& c = GetParam();
    const char* const rates[] = {"119.88", "33.333",      "23.976", "29.97", "47.95",
                                 "59.94",  "120000/1001", "50",     "12.5"};
    for (const char* text :
         std::span(rates).first(tests::effort(std::size(rates), std::size_t{2}))) {
        const auto format = format_at(*frame_rate::parse(text));
        const auto target = target_of(c.file);
        if (!is_possible(target, format)) continue;
        // Long enough for a thousandth to be more than the grain.
        const bool is_gif = c.file == std::string("a.gif");
        const std::uint64_t given = format.rate.frames_in(is_gif ? 2 : (c.grain > 0.001 ? 4 : 1));
        const auto made = make_frames(target, format, given);
        ASSERT_TRUE(made.ok()) << text << made.text();
        const auto film = film_format_of(format);
        const std::uint64_t frames = c.is_interlaced ? (given + 1) / 2 : given;
        const auto about = output_of(
            "ffprobe -v error -select_streams v -count_frames -show_streams 'file:" + target.path +
            "'");
        EXPECT_EQ(value_in(about, "nb_read_frames"), std::to_string(frames)) << text;
        const double off = is_gif ? 0.01 : 0.0003;
        EXPECT_NEAR(quotient(value_in(about, "avg_frame_rate")), film.rate.value(),
                    film.rate.value() * off)
            << text;
        const auto times = output_of(
            "ffprobe -v error -select_streams v -show_entries packet=pts_time -of csv=p=0 'file:" +
            target.path + "' | tr -d , | sort -n | tail -1");
        const std::chrono::duration<double> last = film.rate.time_of(frames - 1);
        EXPECT_NEAR(std::stod(times), last.count(), c.grain) << text;
    }
}

INSTANTIATE_TEST_SUITE_P(All, FilmRate, testing::ValuesIn(k_rate_cases),
                         [](const auto& one) { return std::string(one.param.name); });

class MovieWithAlpha : public NeedsFfmpeg {
protected:
    void expect_alpha(const std::string& name, const std::string& codec,
                      const std::string& decoder) {
        auto format = movie_format(true);
        format.rate = *frame_rate::parse("50");
        format.film.codec = codec;
        const auto made = make(target_of(name), format, std::vector<picture_ptr>(3, half_there()));
        ASSERT_TRUE(made.ok()) << made.text();
        const auto file = folder.path(name);
        // Straight: the colour is free of its alpha.
        expect_near(pixel_of(file, k_width, k_height, 8, 24, decoder), {0x40, 0xC7, 0x20, 0x80}, 4);
        EXPECT_LE(pixel_of(file, k_width, k_height, 56, 24, decoder)[3], 2) << name;
    }
};

TEST_F(MovieWithAlpha, KeepsItStraight) {
    expect_alpha("a.mkv", "", "");
    expect_alpha("b.mov", "", "");
    expect_alpha("c.webm", "", k_vpx);
    expect_alpha("d.mkv", "vp9", k_vpx);
    expect_alpha("e.webp", "", "");
}

// A GIF knows only there and not there.
TEST_F(MovieWithAlpha, IsThereOrNotInAGif) {
    auto format = movie_format(true);
    format.rate = *frame_rate::parse("25");
    const auto made = make(target_of("a.gif"), format, std::vector<picture_ptr>(3, half_there()));
    ASSERT_TRUE(made.ok()) << made.text();
    EXPECT_EQ(pixel_of(folder.path("a.gif"), k_width, k_height, 8, 24)[3], 255);
    EXPECT_EQ(pixel_of(folder.path("a.gif"), k_width, k_height, 56, 24)[3], 0);
}

class Pictures : public NeedsFfmpeg {};

TEST_F(Pictures, HoldTheLastFrame) {
    for (const char* name : {"a.jpg", "b.webp"}) {
        const auto made = make(
            target_of(name), movie_format(false),
            {picture_of(0xFFFFFFFF, k_width, k_height), picture_of(0xFF20C840, k_width, k_height)});
        ASSERT_TRUE(made.ok()) << made.text();
        expect_near(pixel_of(folder.path(name), k_width, k_height, 32, 24),
                    {0x40, 0xC8, 0x20, 0xFF}, 4);
    }
}

TEST_F(Pictures, OfASeriesHaveTheirNumbers) {
    for (const char* ending : {"jpg", "webp"}) {
        const std::string name = std::string("100%%-%03d.") + ending;
        const auto made = make(
            target_of(name), movie_format(false),
            {picture_of(0xFFFFFFFF, k_width, k_height), picture_of(0xFF20C840, k_width, k_height)});
        ASSERT_TRUE(made.ok()) << made.text();
        EXPECT_FALSE(folder.has(std::string("100%-000.") + ending));
        expect_near(
            pixel_of(folder.path(std::string("100%-001.") + ending), k_width, k_height, 1, 1),
            {255, 255, 255, 255}, 4);
        expect_near(
            pixel_of(folder.path(std::string("100%-002.") + ending), k_width, k_height, 1, 1),
            {0x40, 0xC8, 0x20, 0xFF}, 4);
        EXPECT_FALSE(folder.has(std::string("100%-003.") + ending));
    }
}

TEST_F(Pictures, OfNoFrameLeaveWhatWasThere) {
    folder.write("a.jpg", "old");
    const auto made = make(target_of("a.jpg"), movie_format(false), {});
    EXPECT_TRUE(made.ok()) << made.text();
    EXPECT_EQ(folder.read("a.jpg"), "old");
}

// It may be all of a page, or a part of it, which is known only when it is there.
TEST_F(Pictures, HaveTheSizeOfWhatIsShown) {
    for (const char* name : {"a.jpg", "b.webp"}) {
        for (const auto& [width, height] : {std::pair(100L, 900L), std::pair(10L, 7L)}) {
            const auto made =
                make(target_of(name), movie_format(false), {picture_of(0xFF20C840, width, height)});
            ASSERT_TRUE(made.ok()) << made.text();
            expect_part(described(folder.path(name)), "width=" + std::to_string(width));
            expect_part(described(folder.path(name)), "height=" + std::to_string(height));
            expect_near(pixel_of(folder.path(name), width, height, width - 1, height - 1),
                        {0x40, 0xC8, 0x20, 0xFF}, 4);
        }
    }
}

TEST_F(Pictures, OfFillAndKeyHaveTheSameSize) {
    const auto fill = target_of("fill.jpg");
    const auto key = target_of("key.jpg");
    const auto writer = make_page_writer(fill, &key, movie_format(true), nullptr);
    ASSERT_TRUE(writer->begin().ok());
    EXPECT_TRUE(writer->show(picture_of(0x80402010, 100, 300)).ok());
    const auto finished = writer->finish();
    ASSERT_TRUE(finished.ok()) << finished.text();
    expect_near(pixel_of(fill.path, 100, 300, 99, 299), {0x10, 0x20, 0x40, 0xFF}, 4);
    expect_near(pixel_of(key.path, 100, 300, 99, 299), {0x80, 0x80, 0x80, 0xFF}, 4);
}

TEST_F(Pictures, ThatTheirFormatCannotHoldAreToldWithTheSize) {
    const auto made =
        make(target_of("a.webp"), movie_format(false), {picture_of(0xFF20C840, 8, 16384)});
    expect_part(made.text(), "a.webp holds webp, and the picture is 8x16384: it has to be 16383x");
    EXPECT_FALSE(folder.has("a.webp"));
}

TEST_F(NeedsFfmpeg, OddSizesKeepTheirSize) {
    for (const bool transparent : {false, true}) {
        for (const char* file : {"a.mkv", "a.mov", "a.webm", "a.gif", "a.jpg", "a.webp"}) {
            if (transparent && file == std::string("a.jpg")) continue;
            if (!transparent && file == std::string("a.mov")) continue;  // ProRes 422 cannot
            auto format = movie_format(transparent);
            format.rate = *frame_rate::parse("50");
            format.width = 33;
            format.height = 17;
            const auto made = make(target_of(file), format, {picture_of(0xFF20C840, 33, 17)});
            EXPECT_TRUE(made.ok()) << file << made.text();
            const auto about = described(folder.path(file));
            expect_part(about, "width=33");
            expect_part(about, "height=17");
        }
    }
}

}  // namespace
}  // namespace pennywort::host
