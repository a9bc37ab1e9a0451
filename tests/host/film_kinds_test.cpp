// tests/host/film_kinds_test.cpp - each kind of film and picture that ffmpeg makes, read back: its
// frames, its rate, its colours, its alpha, its fields.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "host/output/film_codecs.h"
#include "host/output/film_timecode.h"
#include "host/output/frame_writer.h"
#include "host/output/movie_writer.h"
#include "host/output/output_target.h"
#include "host/system/program_search.h"
#include "tests/host/fake_writer.h"
#include "tests/host/output_of.h"
#include "tests/host/temporary_folder.h"

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;

constexpr long k_width = 64;
constexpr long k_height = 64;

frame_format movie_format(bool transparent) {
    frame_format format = format_of(k_width, k_height, "59.94");
    format.transparent = transparent;
    return format;
}

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

constexpr const char* k_bt709 =
    "color_range=tv\ncolor_space=bt709\ncolor_transfer=bt709\ncolor_primaries=bt709\n";
constexpr const char* k_vpx = "-c:v libvpx-vp9 ";
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

// Blue, green, red, alpha of a pixel of a film's first frame.
std::vector<int> pixel_of(const std::string& file, long width, long height, long x, long y,
                          const std::string& decoder = {}) {
    const auto pixels = output_of(
        "ffmpeg -v error " + decoder + "-i 'file:" + file +
        "' -frames:v 1 -f rawvideo -pix_fmt bgra -sws_flags accurate_rnd+full_chroma_int -");
    if (pixels.size() != std::size_t(width * height * 4)) {
        ADD_FAILURE() << file << " has " << pixels.size() << " bytes of pixels";
        return {-1, -1, -1, -1};
    }
    std::vector<int> pixel;
    for (int i = 0; i < 4; ++i) {
        pixel.push_back(
            static_cast<unsigned char>(pixels[static_cast<std::size_t>((y * width + x) * 4 + i)]));
    }
    return pixel;
}

std::string described(const std::string& file) {
    return output_of("ffprobe -v error -count_frames -show_streams 'file:" + file + "'");
}

void expect_part(const std::string& text, const std::string& part) {
    EXPECT_NE(text.find(part), std::string::npos) << part << " is not in\n" << text;
}

void expect_near(const std::vector<int>& pixel, const std::vector<int>& want, int tolerance) {
    for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(pixel[i], want[i], tolerance) << i;
}

class NeedsFfmpeg : public testing::Test {
protected:
    void SetUp() override {
        if (find_program("ffmpeg").empty()) GTEST_SKIP() << "needs ffmpeg";
    }
    // A film of one colour, or of several frames.
    outcome make(const output_target& target, const frame_format& format,
                 const std::vector<picture_ptr>& frames) const {
        const auto writer = make_page_writer(target, nullptr, format, nullptr);
        if (auto begun = writer->begin(); !begun.ok()) return begun;
        for (const auto& frame : frames) {
            if (auto shown = writer->show(frame); !shown.ok()) return shown;
        }
        return writer->finish();
    }
    output_target target_of(const std::string& name) const {
        std::string reason;
        const auto target = output_target::parse(folder.path(name), "", reason);
        EXPECT_TRUE(target) << reason;
        return target.value_or(output_target());
    }

    const temporary_folder folder;
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
    for (const char* text :
         {"23.976", "29.97", "47.95", "59.94", "119.88", "120000/1001", "50", "33.333", "12.5"}) {
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

// Half of it is half transparent, the other half not there.
picture_ptr half_there() {
    auto made = std::make_shared<picture>(k_width, k_height);
    for (std::size_t i = 0; i < made->pixel_count(); ++i) {
        made->pixels[i] = i % k_width < k_width / 2 ? 0x80106420 : 0;
    }
    return made;
}

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
        movie_writer writer(output_kind::mkv, folder.path("a.mkv"), format, 20s);
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

TEST_F(NeedsFfmpeg, FillAndKeyBelongTogether) {
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

class Sound : public NeedsFfmpeg, public testing::WithParamInterface<const char*> {};

// 2 s of film, whose tone begins at 200 ms.
TEST_P(Sound, IsInTheFilmAtItsTime) {
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

INSTANTIATE_TEST_SUITE_P(All, Sound, testing::Values("a.mkv", "a.mov", "a.mp4", "a.webm", "a.wav"),
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
