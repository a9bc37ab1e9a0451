// tests/host/film_settings_test.cpp - what films can be asked for, and what is refused with a
// reason before anything starts.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "host/output/ffmpeg_words.h"
#include "host/output/film_codecs.h"
#include "host/output/film_command.h"
#include "host/output/film_timecode.h"
#include "host/output/word_list.h"
#include "tests/host/fake_writer.h"

namespace pennywort::host {
namespace {

output_target target_of(const std::string& name) {
    std::string reason;
    const auto target = output_target::parse(name, "", reason);
    EXPECT_TRUE(target) << reason;
    return target.value_or(output_target());
}

struct complaint_case {
    const char* name;
    const char* output;
    void (*change)(frame_format& format);
    const char* part;  // of the complaint; null: there is none
};
void PrintTo(const complaint_case& c, std::ostream* out) { *out << c.name; }

void nothing(frame_format&) {}
void transparent(frame_format& f) { f.transparent = true; }
void odd(frame_format& f) { f.width = 33; }
void odd_lines(frame_format& f) { f.height = 17; }
void fields(frame_format& f) { f.is_interlaced = true; }
void quality(frame_format& f) { f.film.quality = 50; }
void timecode(frame_format& f) { f.film.timecode = "10:00:00:00"; }
void vp9(frame_format& f) { f.film.codec = "vp9"; }
void h264(frame_format& f) { f.film.codec = "h264"; }

constexpr complaint_case k_complaints[] = {
    {"Mp4", "a.mp4", &nothing, nullptr},
    {"Mp4WithAlpha", "a.mp4", &transparent,
     "keeps no alpha: leave --transparent out, or write .mov"},
    {"JpgWithAlpha", "a.jpg", &transparent, "write .png or .webp"},
    {"JpgSeriesWithAlpha", "a%d.jpg", &transparent, "write .png or .webp"},
    {"WebmWithAlpha", "a.webm", &transparent, nullptr},
    {"GifWithAlpha", "a.gif", &transparent, nullptr},
    {"OddMp4", "a.mp4", &odd,
     "a.mp4 holds h264, and the picture is 33x64: width and height have to be even"},
    {"OddLinesOfMp4", "a.mp4", &odd_lines, "width and height have to be even"},
    {"OddMkv", "a.mkv", &odd, nullptr},
    {"OddWebm", "a.webm", &odd, nullptr},
    {"OddProRes", "a.mov", &odd,
     "a.mov holds prores, and the picture is 33x64: the width has to be even"},
    {"OddLinesOfProRes", "a.mov", &odd_lines, nullptr},
    {"OddProResWithAlpha", "a.mov", [](frame_format& f) { transparent(f), odd(f); }, nullptr},
    {"OddProResInMkv", "a.mkv", [](frame_format& f) { f.film.codec = "prores", odd(f); },
     "the width has to be even"},
    {"OddProResWithFields", "a.mov", [](frame_format& f) { fields(f), odd(f); },
     "the width has to be even"},
    {"OddH264InMov", "a.mov", [](frame_format& f) { h264(f), odd(f); }, "have to be even"},
    {"OddAv1", "a.mkv", [](frame_format& f) { f.film.codec = "av1", f.height = 65; },
     "have to be even"},
    {"SmallHevc", "a.mp4", [](frame_format& f) { f.film.codec = "hevc", f.width = 14; },
     "a.mp4 holds hevc, and the picture is 14x64: it has to be 16x16 at least"},
    {"SmallHevcInMkv", "a.mkv", [](frame_format& f) { f.film.codec = "hevc", f.height = 15; },
     "16x16 at least"},
    {"SmallAv1", "a.mp4", [](frame_format& f) { f.film.codec = "av1", f.height = 62; }, "64x64"},
    {"WideWebp", "a.webp", [](frame_format& f) { f.width = 16384; },
     "a.webp holds webp, and the picture is 16384x64: it has to be 16383x16383 at most"},
    {"HighWebpOfASeries", "a%d.webp", [](frame_format& f) { f.height = 16384; }, "at most"},
    {"WidestWebp", "a.webp", [](frame_format& f) { f.width = 16383; }, nullptr},
    {"WideJpg", "a.jpg", [](frame_format& f) { f.width = 16384; }, nullptr},
    {"UnknownCodec", "a.mov", &vp9, "takes prores, h264, hevc"},
    {"CodecWithoutAlpha", "a.mov", [](frame_format& f) { h264(f), transparent(f); },
     "h264 keeps no alpha"},
    {"CodecOfAPng", "a.png", &h264, "--codec is for"},
    {"QualityOfAPng", "a.png", &quality, "--quality is for"},
    {"QualityOfAGif", "a.gif", &quality, "--quality"},
    {"QualityOfFfv1", "a.mkv", [](frame_format& f) { quality(f), transparent(f); }, "--quality"},
    {"QualityOfAJpg", "a.jpg", &quality, nullptr},
    {"OptionsForAY4m", "a.y4m", [](frame_format& f) { f.film.ffmpeg_options = {"-y"}; },
     "--ffmpeg-options is for"},
    {"FastGif", "a.gif", [](frame_format& f) { f.rate = *frame_rate::parse("60"); }, "--fps 50"},
    {"Gif", "a.gif", &nothing, nullptr},
    {"FieldsOfMov", "a.mov", &fields, nullptr},
    {"FieldsOfY4m", "a.y4m", &fields, nullptr},
    {"FieldsOfAGif", "a.gif", &fields, "has no fields"},
    {"FieldsOfAWebm", "a.webm", &fields, "has no fields"},
    {"FieldsOfHevc", "a.mp4", [](frame_format& f) { fields(f), f.film.codec = "hevc"; },
     "has no fields"},
    {"FieldsOfAPicture", "a.png", &fields, "--fields is for films"},
    {"FieldsOfAnOddHeight", "a.mov", [](frame_format& f) { fields(f), odd_lines(f); },
     "even height"},
    {"FieldsOfAnOddHeightInY4m", "a.y4m", [](frame_format& f) { fields(f), odd_lines(f); },
     "even height"},
    {"FieldsWithQuarterColour", "a.mp4", [](frame_format& f) { fields(f), f.height = 50; },
     "the width has to be even, and the height a multiple of 4"},
    {"TimecodeOfMov", "a.mov", &timecode, nullptr},
    {"TimecodeOfWebm", "a.webm", &timecode, "--timecode is for"},
    {"TimecodeOfY4m", "a.y4m", &timecode, "--timecode is for"},
    {"BlanksBeforeANumber", "a%5d.jpg", &nothing, "%05d"},
    {"BlanksBeforeANumberInPng", "a%5d.png", &nothing, nullptr},
};

class FilmComplaint : public testing::TestWithParam<complaint_case> {};

TEST_P(FilmComplaint, IsMadeWhereItsKindCannot) {
    auto format = format_of(64, 64, "50");
    GetParam().change(format);
    const auto said = film_complaint(target_of(GetParam().output), format);
    if (GetParam().part == nullptr) {
        EXPECT_EQ(said, "");
    } else {
        EXPECT_NE(said.find(GetParam().part), std::string::npos) << said;
    }
}

INSTANTIATE_TEST_SUITE_P(All, FilmComplaint, testing::ValuesIn(k_complaints),
                         [](const auto& one) { return std::string(one.param.name); });

std::string value_behind(const std::vector<std::string>& command, const std::string& option) {
    const auto at = std::find(command.begin(), command.end(), option);
    return at == command.end() || at + 1 == command.end() ? "" : at[1];
}

TEST(FilmCommand, QualityIsOnTheScaleOfItsEncoder) {
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        {"a.mp4", "-crf", 1, "50"},  {"a.mp4", "-crf", 100, "1"}, {"a.webm", "-crf", 50, "32"},
        {"a.mov", "-q:v", 100, "1"}, {"a.jpg", "-q:v", 1, "31"},  {"a.webp", "-quality", 7, "7"},
    };
    for (const auto& [name, option, asked, wanted] : cases) {
        auto format = format_of(64, 48);
        format.film.quality = asked;
        EXPECT_EQ(value_behind(film_command("ffmpeg", target_of(name), format), option), wanted)
            << name;
    }
}

TEST(FilmCommand, EndsWithTheUsersOptionsAndTheFile) {
    auto format = format_of(64, 48);
    format.film.ffmpeg_options = {"-preset", "slow"};
    const auto command = film_command("ffmpeg", target_of("a.mkv"), format);
    const std::vector<std::string> end(command.end() - 5, command.end());
    EXPECT_EQ(end,
              (std::vector<std::string>{"-preset", "slow", "-progress", "pipe:2", "file:a.mkv"}));
}

TEST(FilmCommand, GivesTheRateOfTheFramesAsAFraction) {
    const auto format = format_of(64, 48, "119.88");
    for (const auto& command : {film_command("ffmpeg", target_of("a.mkv"), format),
                                film_trial_command("ffmpeg", target_of("a.mkv"), format)}) {
        const auto at = std::find(command.begin(), command.end(), "-r");
        ASSERT_LT(at, std::find(command.begin(), command.end(), "-i"));
        EXPECT_EQ(at[1], "120000/1001");
    }
}

struct timecode_case {
    const char* name;
    const char* text;
    const char* rate;
    const char* part;  // of the complaint; null: there is none
};
void PrintTo(const timecode_case& c, std::ostream* out) { *out << c.name; }

constexpr timecode_case k_timecodes[] = {
    {"First", "00:00:00:00", "25", nullptr},
    {"Last", "23:59:59:49", "50", nullptr},
    {"OneHourTooMany", "24:00:00:00", "25", "is not HH:MM:SS:FF"},
    {"OneMinuteTooMany", "00:60:00:00", "25", "is not HH:MM:SS:FF"},
    {"OneSecondTooMany", "00:00:60:00", "25", "is not HH:MM:SS:FF"},
    {"OneFrameTooMany", "00:00:00:25", "25", "from 00 to 24"},
    {"Ntsc", "00:00:00:29", "29.97", nullptr},
    {"NtscHasNoThirtieth", "00:00:00:30", "29.97", "from 00 to 29"},
    {"Film", "01:00:00:23", "23.976", nullptr},
    {"Drop", "01:00:00;00", "29.97", nullptr},
    {"DropFast", "01:01:00;04", "59.94", nullptr},
    {"LeftOut", "01:01:00;01", "29.97", "left out"},
    {"LeftOutFast", "01:01:00;03", "59.94", "left out"},
    {"NotLeftOutInTheTenthMinute", "01:10:00;01", "29.97", nullptr},
    {"NoDropAt25", "01:00:00;00", "25", "29.97"},
    {"NoDropAtFilm", "01:00:00;00", "23.976", "29.97"},
    {"OddRate", "01:00:00:00", "12.5", "there is none for 25/2"},
    {"OddNtscRate", "01:00:00:00", "12000/1001", "there is none"},
    {"Empty", "", "25", "is not HH:MM:SS:FF"},
    {"Short", "1:00:00:00", "25", "is not HH:MM:SS:FF"},
    {"Sign", "-1:00:00:00", "25", "is not HH:MM:SS:FF"},
    {"Letters", "aa:bb:cc:dd", "25", "is not HH:MM:SS:FF"},
    {"Commas", "00:00:00,00", "25", "is not HH:MM:SS:FF"},
};

class Timecode : public testing::TestWithParam<timecode_case> {};

TEST_P(Timecode, IsTakenOrRefusedWithAReason) {
    const auto& c = GetParam();
    const auto said = timecode_complaint(c.text, *frame_rate::parse(c.rate));
    if (c.part == nullptr) {
        EXPECT_EQ(said, "");
    } else {
        EXPECT_NE(said.find(c.part), std::string::npos) << said;
    }
}

INSTANTIATE_TEST_SUITE_P(All, Timecode, testing::ValuesIn(k_timecodes),
                         [](const auto& one) { return std::string(one.param.name); });

using words = std::vector<std::string>;

TEST(WordList, SplitsAtBlanksOutsideOfQuotes) {
    EXPECT_EQ(words_of(""), words());
    EXPECT_EQ(words_of("  "), words());
    EXPECT_EQ(words_of("-crf 10"), (words{"-crf", "10"}));
    EXPECT_EQ(words_of(" -a\t'b c' "), (words{"-a", "b c"}));
    EXPECT_EQ(words_of("a\"b c\"d"), (words{"ab cd"}));
    EXPECT_EQ(words_of("'' x"), (words{"", "x"}));
    EXPECT_EQ(words_of("\"it's\""), (words{"it's"}));
    EXPECT_EQ(words_of("C:\\a\\b"), (words{"C:\\a\\b"}));
}

TEST(WordList, AQuoteWithoutAnEndIsNone) {
    EXPECT_FALSE(words_of("'a"));
    EXPECT_FALSE(words_of("a \"b' c"));
}

TEST(FfmpegWords, AreOptionsAndTheirValues) {
    for (const words& good :
         {words(), words{"-crf", "10"}, words{"-an"}, words{"-shortest", "-crf", "10"},
          words{"-nostats", "-copyinkf:v", "-b:v", "20M"}, words{"-map", "-0:a"},
          words{"-qmin", "-1", "-vf", "hflip,vflip"}, words{"-metadata", "title=two words"},
          words{"-metadata", ""}}) {
        EXPECT_EQ(ffmpeg_words_complaint(good), "");
    }
}

TEST(FfmpegWords, OneThatIsNeitherIsRefused) {
    const std::pair<words, const char*> cases[] = {
        {{"out/extra.mp4"}, "'out/extra.mp4' is neither"},
        {{"-crf", "10", "extra.mp4"}, "'extra.mp4' is neither"},
        {{"-an", "extra.mp4"}, "'extra.mp4' is neither"},
        {{"-noautorotate", "extra.mp4"}, "'extra.mp4' is neither"},
        {{"-"}, "'-' is neither"},
        {{""}, "'' is neither"},
        {{"-crf"}, "-crf has no value"},
        {{"-an", "-preset"}, "-preset has no value"},
    };
    for (const auto& [given, part] : cases) {
        const auto said = ffmpeg_words_complaint(given);
        EXPECT_NE(said.find(part), std::string::npos) << said;
    }
}

TEST(FrameRate, HalvedIsExact) {
    EXPECT_EQ(frame_rate::parse("50")->halved().text(), "25");
    EXPECT_EQ(frame_rate::parse("25")->halved().text(), "25/2");
    EXPECT_EQ(frame_rate::parse("59.94")->halved().text(), "30000/1001");
    EXPECT_EQ(frame_rate::parse("1")->halved().text(), "1/2");
}

}  // namespace
}  // namespace pennywort::host
