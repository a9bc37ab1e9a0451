// tests/host/command_line_test.cpp - arguments: what is refused, and what the rest means.
#include "host/app/command_line.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "host/live/live_command.h"
#include "tests/host/parsed_render.h"
#include "tests/host/temporary_folder.h"

namespace pennywort::host {
namespace {

using strings = std::vector<std::string>;

constexpr const char* k_page = "about:blank";

render_options parse_render(strings more) {
    more.insert(more.begin(), {"render", k_page});
    return render_of(more).value_or(render_options());
}

const refused_arguments k_refused_lines[] = {
    {"Nothing", {}, "no command is named: render, live"},
    {"UnknownCommand", {"rendr"}, "rendr"},
    {"NoPage", {"render"}, "pages"},
    {"UnknownOption", {"render", k_page, "--sise", "1x1"}, "no option --sise; perhaps --size;"},
    {"OptionOfAnotherProgram", {"render", k_page, "--framerate=25"}, "--framerate; perhaps --fps;"},
    {"ShortOption", {"render", k_page, "-r", "25"}, "no option -r; perhaps --fps;"},
    {"OptionOfAnotherCommand", {"fetch", k_page, "--framerate=25"}, "no option --framerate;"},
    {"OptionLikeNoOther", {"render", k_page, "--xyzzy"}, "no option --xyzzy; pennywort render"},
    {"OptionOfNoCommand", {"--versoin"}, "no option --versoin; perhaps --version;"},
    {"UnknownOptionWithoutAPage", {"render", "--sise", "1x1"}, "no option --sise"},
    {"AWordTooMuch", {"fetch", k_page, "another"}, "another"},
    {"MissingFile", {"render", "no-such.html"}, "no-such.html"},
    {"MissingFileOfTheRoot", {"render", "/no-such.html"}, "/no-such.html"},
    {"SecondPageMissing", {"render", k_page, "no-such.html"}, "no-such.html"},
    {"SizeWithoutValue", {"render", k_page, "--size"}, "--size"},
    {"SizeZero", {"render", k_page, "--size", "0x720"}, "--size 0x720"},
    {"SizeNegative", {"render", k_page, "--size=-4x720"}, "-4x720"},
    {"SizeTooLarge", {"render", k_page, "--size", "16385x4"}, "16385x4"},
    {"SizeOfOneNumber", {"render", k_page, "--size", "720"}, "720"},
    {"SizeWithMore", {"render", k_page, "--size", "1x2x3"}, "1x2x3"},
    {"SizeOverflow", {"render", k_page, "--size", "99999999999999999999x1"}, "--size"},
    {"FpsZero", {"render", k_page, "--fps", "0"}, "--fps 0"},
    {"FpsTooHigh", {"render", k_page, "--fps", "241"}, "241"},
    {"FpsWord", {"render", k_page, "--fps", "fast"}, "fast"},
    {"FramesZero", {"render", k_page, "--frames", "0"}, "--frames 0"},
    {"FramesNegative", {"render", k_page, "--frames=-1"}, "-1"},
    {"FramesFraction", {"render", k_page, "--frames", "1.5"}, "1.5"},
    {"SecondsZero", {"render", k_page, "--seconds", "0"}, "--seconds 0"},
    {"SecondsNan", {"render", k_page, "--seconds", "nan"}, "nan"},
    {"SecondsInfinite", {"render", k_page, "--seconds", "inf"}, "up to 1000000"},
    {"TwoLengths", {"render", k_page, "--frames", "1", "--seconds", "1"}, "--seconds"},
    {"EndlessAndLong", {"render", k_page, "--frames", "1", "--endless"}, "--endless"},
    {"TimeoutZero", {"render", k_page, "--timeout", "0"}, "--timeout 0"},
    {"MissingStyleSheet", {"render", k_page, "--css", "no.css"}, "no.css"},
    {"StyleSheetThatIsAFolder", {"render", k_page, "--css", "."}, "--css . cannot be read"},
    {"ScriptThatIsAFolder", {"render", k_page, "--script", "."}, "--script . cannot be read"},
    {"MissingScript", {"render", k_page, "--script", "no.js"}, "no.js"},
    {"UnknownEnding", {"render", k_page, "-o", "film.avi"}, "film.avi"},
    {"BadPattern", {"render", k_page, "-o", "f-%s.png"}, "f-%s.png"},
    {"UnknownFormat", {"render", k_page, "-o", "-", "--format", "nut"}, "nut"},
    {"FormatWithoutOutput", {"render", k_page, "--format", "raw"}, "-o"},
    {"UnknownPacing", {"render", k_page, "--pacing", "never"}, "never"},
    {"QuietAndVerbose",
     {"render", k_page, "--quiet", "--verbose"},
     "--quiet and --verbose exclude each other"},
    {"TwoClocks", {"render", k_page, "--exact", "--live"}, "--exact and --live exclude each other"},
    {"ExactAndFreeRunning",
     {"render", k_page, "--exact", "--free-run"},
     "--exact and --free-run exclude each other"},
    {"ExactAndAHostClock",
     {"render", k_page, "--exact", "--host-clock", "on"},
     "--exact and --host-clock on exclude each other"},
    {"AnOptionTwice",
     {"render", k_page, "--size", "8x8", "--size", "9x9"},
     "--size is given more than once; pennywort render --help"},
    {"EmptyOutput", {"render", k_page, "-o", ""}, "--output: its value is empty"},
    {"EmptyCodec", {"render", k_page, "-o", "a.mkv", "--codec", ""}, "--codec: its value is empty"},
    {"EmptyQuality", {"render", k_page, "-o", "a.mkv", "--quality="}, "--quality"},
    {"EmptyKey", {"render", k_page, "-o", "a.mkv", "--key", ""}, "--key: its value is empty"},
    {"EmptyFrames", {"render", k_page, "--frames", ""}, "--frames: its value is empty"},
    {"EmptyCookie", {"render", k_page, "--cookie", ""}, "--cookie: its value is empty"},
    {"EmptyFpsOfLive", {"live", k_page, "--fps", ""}, "--fps: its value is empty"},
    {"KeyThatIsSound",
     {"render", k_page, "-o", "a.mov", "--key", "k.wav"},
     "--key: k.wav holds no picture"},
    {"KeyOfSound",
     {"render", k_page, "--live", "-o", "a.wav", "--key", "k.mov"},
     "--key: a.wav holds no picture"},
    {"KeyOfOnePicture",
     {"render", k_page, "-o", "a.mov", "--key", "k.png"},
     "--key: one of a.mov and k.png holds one picture"},
    {"KeyThatIsTheFilm",
     {"render", k_page, "-o", "f.mov", "--key", "./f.mov"},
     "--key ./f.mov and -o f.mov are the same file"},
    {"KeyThatIsTheSeries",
     {"render", k_page, "-o", "f-%d.png", "--key", "no/../f-%d.png"},
     "are the same file"},
    {"KeyThatBecomesTheSeriesAtTen",
     {"render", k_page, "-o", "f-%d.png", "--key", "no/../f-%02d.png"},
     "--key no/../f-%02d.png and -o f-%d.png may come to the same file"},
    {"KeyThatBecomesTheSeriesWithBlanks",
     {"render", k_page, "-o", "f-%d.png", "--key", "f-%2d.png"},
     "may come to the same file"},
    {"KeyWhoseNumbersAreOfTheSeries",
     {"render", k_page, "-o", "f-%d.png", "--key", "f-1%d.png"},
     "may come to the same file"},
    {"KeyWhoseNumbersAreOfTheSeriesBehind",
     {"render", k_page, "-o", "f-%d.png", "--key", "f-%d0.png"},
     "may come to the same file"},
    {"OptionsForFfmpegThatAreAFile",
     {"render", k_page, "-o", "a.mkv", "--ffmpeg-options", "b.mkv"},
     "--ffmpeg-options: 'b.mkv' is neither an option nor the value of one"},
    {"UnknownClock", {"render", k_page, "--host-clock", "maybe"}, "maybe"},
    {"OnePictureOfTwoPages", {"render", k_page, k_page, "-o", "a.png"}, "a.png"},
    {"EndlessQueue", {"render", k_page, k_page, "--endless"}, "--endless"},
};

class CommandLineRefusal : public testing::TestWithParam<refused_arguments> {};

TEST_P(CommandLineRefusal, IsOneLineThatNamesWhatIsWrong) {
    expect_refused(GetParam().arguments, GetParam().names);
}

INSTANTIATE_TEST_SUITE_P(All, CommandLineRefusal, testing::ValuesIn(k_refused_lines),
                         [](const auto& one) { return std::string(one.param.name); });

// It may be a secret that was to stand elsewhere.
TEST(CommandLine, TheValueOfAnUnknownOptionIsNotSaid) {
    const auto parsed = parse_command_line({"render", k_page, "--haeder=Authorization: secret"});
    EXPECT_EQ(parsed.what, command_line::verdict::refuse);
    EXPECT_NE(parsed.text.find("--haeder; perhaps --header;"), std::string::npos) << parsed.text;
    EXPECT_EQ(parsed.text.find("secret"), std::string::npos) << parsed.text;
}

TEST(CommandLine, HelpAndVersionAreSaid) {
    for (const strings& arguments :
         {strings{"--help"}, strings{"render", "--help"}, strings{"--version"}}) {
        const auto line = parse_command_line(arguments);
        EXPECT_EQ(line.what, command_line::verdict::say);
        EXPECT_FALSE(line.text.empty());
        EXPECT_EQ(line.text.back(), '\n');
    }
}

TEST(CommandLine, TheHelpOfEachCommandIsItsOwn) {
    for (const auto& one : all_commands()) {
        const auto line = parse_command_line({one->name(), "--help"});
        EXPECT_EQ(line.what, command_line::verdict::say);
        EXPECT_NE(line.text.find(one->footer()), std::string::npos) << line.text;
        EXPECT_NE(parse_command_line({"--help"}).text.find(one->summary()), std::string::npos);
    }
}

TEST(CommandLine, HelpOfRenderShowsItsOptions) {
    const auto line = parse_command_line({"render", "--help"});
    for (const char* option :
         {"--size", "--fps", "--frames", "--seconds", "--css", "--transparent", "--script",
          "--wait-for", "--timeout", "-o", "--format", "--json", "--verbose"}) {
        EXPECT_NE(line.text.find(option), std::string::npos) << option;
    }
}

TEST(CommandLine, APageAloneIsMeasuredForTenSecondsWithTheUsualFormat) {
    const auto options = parse_render({});
    EXPECT_EQ(options.urls, strings{k_page});
    EXPECT_EQ(options.format.width, 1280);
    EXPECT_EQ(options.format.height, 720);
    EXPECT_EQ(options.format.rate.text(), "50");
    EXPECT_EQ(options.frames_per_page, 500u);
    EXPECT_EQ(options.output.kind, output_kind::none);
    EXPECT_EQ(options.clock, page_clock::host);
    EXPECT_EQ(options.pacing, pump_pacing::on_request);
    EXPECT_FALSE(options.format.transparent);
    EXPECT_FALSE(options.gpu);
}

TEST(CommandLine, TheLargestAndSmallestSizesAreTaken) {
    EXPECT_EQ(parse_render({"--size", "16384x1"}).format.width, 16384);
    EXPECT_EQ(parse_render({"--size", "1x16384"}).format.height, 16384);
}

TEST(CommandLine, LengthsAreFramesOfEachPage) {
    EXPECT_EQ(parse_render({"--frames", "7"}).frames_per_page, 7u);
    EXPECT_EQ(parse_render({"--seconds", "2.5"}).frames_per_page, 125u);
    EXPECT_EQ(parse_render({"--fps", "59.94", "--seconds", "10"}).frames_per_page, 599u);
    EXPECT_EQ(parse_render({"--endless"}).frames_per_page, render_options::k_endless);
    EXPECT_EQ(parse_render({"-o", "a.png"}).frames_per_page, 1u);
    EXPECT_EQ(parse_render({"-o", "a.png", "--frames", "9"}).frames_per_page, 9u);
    EXPECT_EQ(parse_render({"-o", "a%d.png"}).frames_per_page, 500u);
}

TEST(CommandLine, ADashIsStandardOutput) {
    const auto options = parse_render({"-o", "-"});
    EXPECT_TRUE(options.output.to_standard_output());
    EXPECT_EQ(options.output.kind, output_kind::y4m);
}

TEST(CommandLine, EachStreamFormatIsTaken) {
    EXPECT_EQ(parse_render({"-o", "-", "--format", "matroska"}).output.kind, output_kind::matroska);
    EXPECT_EQ(parse_render({"-o", "-", "--format", "y4m"}).output.kind, output_kind::y4m);
    EXPECT_EQ(parse_render({"-o", "-", "--format", "raw"}).output.kind, output_kind::raw);
}

TEST(CommandLine, TextsComeFromTheirFiles) {
    const temporary_folder folder;
    const auto css = folder.write("a.css", "body { color: red }\n");
    const auto script = folder.write("a.js", std::string("return 'a\0b';", 13));
    const auto options =
        parse_render({"--css", css, "--script", script, "--wait-for", "window.x > 1"});
    EXPECT_EQ(options.css, "body { color: red }\n");
    EXPECT_EQ(options.script.size(), 13u);
    EXPECT_EQ(options.wait_for, "window.x > 1");
}

TEST(CommandLine, FreeRunIsAHostClockThatIsOff) {
    EXPECT_EQ(parse_render({"--free-run"}).clock, page_clock::page);
    EXPECT_EQ(parse_render({"--exact"}).clock, page_clock::own);
    EXPECT_EQ(parse_render({"--host-clock", "off"}).clock, page_clock::page);
    EXPECT_EQ(parse_render({"--host-clock", "on"}).clock, page_clock::host);
    EXPECT_EQ(parse_render({"--pacing", "timer"}).pacing, pump_pacing::timer);
}

TEST(CommandLine, AFileIsExactAndWhatSomebodyWaitsForIsLive) {
    const temporary_folder folder;
    const auto clock_of = [&](strings arguments, const char* name) {
        arguments.insert(arguments.end(), {"-o", folder.path(name)});
        return parse_render(arguments).clock;
    };
    EXPECT_EQ(clock_of({}, "a.mov"), page_clock::own);
    EXPECT_EQ(clock_of({}, "a.png"), page_clock::own);
    EXPECT_EQ(clock_of({}, "a-%d.png"), page_clock::own);
    folder.write("there.y4m", "");
    EXPECT_EQ(clock_of({}, "there.y4m"), page_clock::own);
    EXPECT_EQ(clock_of({"--endless"}, "a.mkv"), page_clock::host);
    EXPECT_EQ(clock_of({"--live"}, "a.mov"), page_clock::host);
    EXPECT_EQ(clock_of({"--host-clock", "on"}, "a.mov"), page_clock::host);
    EXPECT_EQ(clock_of({"--host-clock", "off"}, "a.mov"), page_clock::page);
    EXPECT_EQ(clock_of({"--free-run"}, "a.mov"), page_clock::page);
    EXPECT_EQ(parse_render({"-o", "-"}).clock, page_clock::host);
    EXPECT_EQ(parse_render({"-o", "-", "--exact"}).clock, page_clock::own);
}

TEST(CommandLine, AKeyIsOfTheKindOfItsFill) {
    for (const auto& [fill, key] : {std::pair{"f.mov", "k.mov"},
                                    {"f.mp4", "k.mkv"},
                                    {"f.png", "k.png"},
                                    {"-", "k.y4m"},
                                    {"f-%d.png", "k-%d.png"},
                                    {"f-%d.png", "f-%d-key.png"},
                                    {"1/f-%d.png", "2/f-%d.png"},
                                    {"f-%d.png", "f-%02d.jpg"},
                                    {"f.mov", "k-%d.png"}}) {
        EXPECT_TRUE(parse_render({"-o", fill, "--key", key}).key.has_value()) << fill << key;
    }
}

// A page that is a picture has an ending that an output may have.
TEST(CommandLine, APageIsNotWrittenOver) {
    const temporary_folder folder;
    const std::string page = folder.write("page.png", "picture");
    const std::string again = folder.path() + "/./page.png";
    for (const strings& outputs :
         {strings{"-o", again}, strings{"-o", folder.path("fill.png"), "--key", again}}) {
        strings arguments{"render", page};
        arguments.insert(arguments.end(), outputs.begin(), outputs.end());
        const auto line = parse_command_line(arguments);
        EXPECT_EQ(line.what, command_line::verdict::refuse);
        EXPECT_NE(line.text.find(again + " is the page itself"), std::string::npos) << line.text;
    }
    EXPECT_EQ(parse_command_line({"render", page, "-o", folder.path("other.png")}).what,
              command_line::verdict::run);
}

TEST(CommandLine, OptionsMayStandBeforeThePages) {
    const auto options = render_of({"render", "--size", "8x8", "--json", k_page, "data:,x"});
    ASSERT_TRUE(options);
    EXPECT_EQ(options->urls.size(), 2u);
    EXPECT_TRUE(options->json);
}

TEST(CommandLine, PagesOfLiveAreSilentOnlyIfTheyAreToBe) {
    for (const bool is_muted : {false, true}) {
        strings arguments{"live", k_page};
        if (is_muted) arguments.emplace_back("--mute");
        const auto line = parse_command_line(arguments);
        const auto* const chosen = dynamic_cast<const live_command*>(line.chosen.get());
        ASSERT_NE(chosen, nullptr) << line.text;
        EXPECT_EQ(chosen->options().is_muted, is_muted);
    }
}

TEST(CommandLine, OnlyAWholeNumericAddressIsListenedOn) {
    const auto verdict_of = [](const char* address) {
        return parse_command_line({"live", "about:blank", "--listen", address}).what;
    };
    for (const char* const good :
         {"127.0.0.1", "0.0.0.0", "::", "::1", "fd09::1", "::ffff:1.2.3.4"}) {
        EXPECT_EQ(verdict_of(good), command_line::verdict::run) << good;
    }
    for (const char* const bad : {"1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.", "ab.cd.ef.12",
                                  ":::", "1:2", "a.b", "1", "localhost", ""}) {
        EXPECT_EQ(verdict_of(bad), command_line::verdict::refuse) << bad;
    }
}

}  // namespace
}  // namespace pennywort::host
