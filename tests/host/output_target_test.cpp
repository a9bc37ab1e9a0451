// tests/host/output_target_test.cpp - what -o and --format ask for, and the names of series.
#include "host/output/output_target.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <utility>

namespace pennywort::host {
namespace {

class NamePatternRefusal : public testing::TestWithParam<const char*> {};

TEST_P(NamePatternRefusal, IsNoPatternAndSaysWhy) {
    std::string reason;
    EXPECT_FALSE(name_pattern::parse(GetParam(), reason)) << GetParam();
    EXPECT_FALSE(reason.empty());
}

INSTANTIATE_TEST_SUITE_P(All, NamePatternRefusal,
                         testing::Values("", "plain.png", "100%%.png", "%", "a%", "a%5", "a%05",
                                         "%s.png", "%n.png", "%5s.png", "%-5d.png", "%+d.png",
                                         "% d.png", "%ld.png", "%d-%d.png", "%05d%s.png",
                                         "%13d.png", "%99999999999d.png", "%1$d.png", "%*d.png",
                                         "%.3d.png", "%x.png", "%%%"));

struct pattern_case {
    const char* name;
    const char* pattern;
    std::uint64_t number;
    const char* file;
};
void PrintTo(const pattern_case& c, std::ostream* out) { *out << c.name; }

constexpr pattern_case k_patterns[] = {
    {"Plain", "f%d.png", 7, "f7.png"},
    {"Zeros", "frames-%05d.png", 42, "frames-00042.png"},
    {"Blanks", "f%3d.png", 7, "f  7.png"},
    {"WiderThanAsked", "f%02d.png", 12345, "f12345.png"},
    {"PercentSignBefore", "50%%-%d.png", 1, "50%-1.png"},
    {"PercentSignBehind", "%d%%.png", 1, "1%.png"},
    {"ZeroAlone", "%0d.png", 3, "3.png"},
    {"InTheFolder", "take%d/f.png", 3, "take3/f.png"},
    {"Widest", "%012d.png", 1, "000000000001.png"},
};

class NamePatternTest : public testing::TestWithParam<pattern_case> {};

TEST_P(NamePatternTest, PutsTheNumberInItsPlace) {
    std::string reason;
    const auto pattern = name_pattern::parse(GetParam().pattern, reason);
    ASSERT_TRUE(pattern) << reason;
    EXPECT_EQ(pattern->name_of(GetParam().number), GetParam().file);
}

INSTANTIATE_TEST_SUITE_P(All, NamePatternTest, testing::ValuesIn(k_patterns),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(NamePattern, IsWrittenAsFfmpegTakesIt) {
    const std::pair<const char*, std::optional<std::string>> cases[] = {
        {"a%d.jpg", "a%d.jpg"},     {"a%05d.jpg", "a%05d.jpg"}, {"50%%-%03d.jpg", "50%%-%03d.jpg"},
        {"%d%%.jpg", "%d%%.jpg"},   {"%1d.jpg", "%01d.jpg"},    {"%0d.jpg", "%d.jpg"},
        {"a%5d.jpg", std::nullopt},
    };
    for (const auto& [text, wanted] : cases) {
        std::string reason;
        const auto pattern = name_pattern::parse(text, reason);
        ASSERT_TRUE(pattern) << text;
        EXPECT_EQ(pattern->for_ffmpeg(), wanted) << text;
    }
}

TEST(OutputTarget, OfOnePictureMayHaveAPercentSign) {
    std::string reason;
    for (const auto& [text, path] : {std::pair{"50%%.png", "50%.png"}, {"%%%%a.jpg", "%%a.jpg"}}) {
        const auto target = output_target::parse(text, "", reason);
        ASSERT_TRUE(target) << reason;
        EXPECT_EQ(target->path, path);
        EXPECT_TRUE(is_single_picture(target->kind));
    }
    EXPECT_FALSE(output_target::parse("50%.png", "", reason));
    EXPECT_NE(reason.find("%% stands for"), std::string::npos) << reason;
    EXPECT_FALSE(output_target::parse("50%%%.png", "", reason));
}

struct refusal_case {
    const char* name;
    const char* text;
    const char* format;
};
void PrintTo(const refusal_case& c, std::ostream* out) { *out << c.name; }

constexpr refusal_case k_refusals[] = {
    {"Empty", "", ""},
    {"NoEnding", "film", ""},
    {"UnknownEnding", "film.avi", ""},
    {"EndingOfTheFolderOnly", "a.mov/film", ""},
    {"OnlyADot", "film.", ""},
    {"FormatAgainstEnding", "film.mov", "raw"},
    {"RawAgainstY4m", "film.y4m", "raw"},
    {"AStreamAgainstAFilm", "film.mkv", "matroska"},
    {"BadPattern", "f%s.png", ""},
};

class OutputTargetRefusal : public testing::TestWithParam<refusal_case> {};

TEST_P(OutputTargetRefusal, SaysWhy) {
    std::string reason;
    EXPECT_FALSE(output_target::parse(GetParam().text, GetParam().format, reason));
    EXPECT_FALSE(reason.empty());
}

INSTANTIATE_TEST_SUITE_P(All, OutputTargetRefusal, testing::ValuesIn(k_refusals),
                         [](const auto& one) { return std::string(one.param.name); });

struct target_case {
    const char* name;
    const char* text;
    const char* format;
    output_kind kind;
};
void PrintTo(const target_case& c, std::ostream* out) { *out << c.name; }

constexpr target_case k_targets[] = {
    {"Picture", "out.png", "", output_kind::png},
    {"Series", "f-%05d.png", "", output_kind::png_series},
    {"CapitalEnding", "OUT.MOV", "", output_kind::mov},
    {"Mkv", "a.b/film.mkv", "", output_kind::mkv},
    {"PercentSignElsewhere", "100%.mkv", "", output_kind::mkv},
    {"Mp4", "film.mp4", "", output_kind::mp4},
    {"Webm", "film.webm", "", output_kind::webm},
    {"Gif", "film.gif", "", output_kind::gif},
    {"Jpg", "a.JPG", "", output_kind::jpg},
    {"Jpeg", "a.jpeg", "", output_kind::jpg},
    {"Webp", "a.webp", "", output_kind::webp},
    {"Wav", "a.wav", "", output_kind::wav},
    {"JpgSeries", "a-%d.jpg", "", output_kind::jpg_series},
    {"WebpSeries", "a-%04d.webp", "", output_kind::webp_series},
    {"Pipe", "-", "", output_kind::y4m},
    {"RawPipe", "-", "raw", output_kind::raw},
    {"NamedPipe", "/tmp/fifo", "raw", output_kind::raw},
    {"NamedY4mPipe", "fifo", "y4m", output_kind::y4m},
    {"MatroskaPipe", "-", "matroska", output_kind::matroska},
    {"Bgra", "film.bgra", "", output_kind::raw},
    {"SaidTwice", "film.y4m", "y4m", output_kind::y4m},
};

class OutputTargetTest : public testing::TestWithParam<target_case> {};

TEST_P(OutputTargetTest, HasTheKindThatItsNameOrFormatSays) {
    std::string reason;
    const auto target = output_target::parse(GetParam().text, GetParam().format, reason);
    ASSERT_TRUE(target) << reason;
    EXPECT_EQ(target->kind, GetParam().kind);
    EXPECT_EQ(target->path, GetParam().text);
    EXPECT_EQ(target->pattern.has_value(), is_series(GetParam().kind));
}

INSTANTIATE_TEST_SUITE_P(All, OutputTargetTest, testing::ValuesIn(k_targets),
                         [](const auto& one) { return std::string(one.param.name); });

}  // namespace
}  // namespace pennywort::host
