// tests/host/texts_test.cpp - what the program prints: reports, progress, summaries; and the last
// line of what another program prints.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "core/limits.h"
#include "host/render/progress.h"
#include "host/render/render_report.h"
#include "host/system/last_line.h"

namespace pennywort::host {
namespace {

using namespace std::chrono_literals;

TEST(LastLine, IsTheSameAtEverySplit) {
    const std::string text = "one\ntwo\r\n\nlast words";
    for (std::size_t split = 0; split <= text.size(); ++split) {
        last_line lines;
        lines.add(text.substr(0, split));
        lines.add(text.substr(split));
        EXPECT_EQ(lines.text(), "last words") << split;
    }
}

TEST(LastLine, EmptyLinesDoNotCount) {
    last_line lines;
    EXPECT_EQ(lines.text(), "");
    lines.add("\n\nreason\n\n\r\n");
    EXPECT_EQ(lines.text(), "reason");
}

TEST(LastLine, ALineWithoutEndStaysShort) {
    last_line lines;
    for (int i = 0; i < 1000; ++i) lines.add("0123456789");
    EXPECT_EQ(lines.text().size(), k_max_last_line);
    lines.add("\nend\n");
    EXPECT_EQ(lines.text(), "end");
}

TEST(Progress, TheBarNeverReachesTheEndOfTheTerminalsLine) {
    progress_state state;
    state.total = 200;
    state.doing = "page 1 of 3";
    for (std::uint64_t frames : {0u, 1u, 100u, 200u, 300u}) {
        for (int columns = 1; columns < 120; ++columns) {
            state.frames = frames;
            EXPECT_LT(progress_bar(state, columns).size(), static_cast<std::size_t>(columns));
        }
    }
}

// A page's own words may be among them.
TEST(Progress, SaysNothingThatATerminalObeys) {
    std::FILE* const file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    progress(file, 0).say("page: \x1b]0;owned\x07 \x1b[31mX\nsecond \xc2\x9b gr\xc3\xbcn \xff");
    std::rewind(file);
    char text[200]{};
    const std::size_t length = std::fread(text, 1, sizeof text, file);
    std::fclose(file);
    EXPECT_EQ(std::string(text, length), "page:  ]0;owned   [31mX second   gr\xc3\xbcn  \n");
}

TEST(Progress, TheBarFillsWithTheFrames) {
    progress_state state;
    state.total = 100;
    state.frames = 50;
    state.seconds = 1;
    state.doing = "page 1 of 1";
    EXPECT_EQ(progress_bar(state, 100),
              "[###############...............]  page 1 of 1  50/100 frames  1.0 s");
    EXPECT_EQ(progress_line(state), "page 1 of 1  50/100 frames  1.0 s  50 %");
}

TEST(Progress, WithoutATotalThereIsNoShare) {
    progress_state state;
    state.frames = 50;
    state.seconds = 1;
    state.repeated = 2;
    state.dropped = 3;
    state.doing = "page 1 of 1";
    EXPECT_EQ(progress_line(state), "page 1 of 1  50 frames  1.0 s  2 repeated  3 dropped");
    EXPECT_EQ(progress_bar(state, 200), progress_line(state));
}

TEST(Progress, BeforeTheFirstFrameOnlySaysWhatItDoes) {
    progress_state state;
    state.total = 100;
    state.doing = "loading page 1 of 1";
    EXPECT_EQ(progress_line(state), "loading page 1 of 1");
}

render_result some_result() {
    render_result result;
    result.counts.frames = 100;
    result.counts.painted = 98;
    result.counts.repeated = 3;
    result.counts.dropped = 1;
    result.counts.counted = 2s;
    result.missed = 2;
    result.first_frame = 512ms;
    return result;
}

TEST(RenderReport, HasOneLineWithEveryNumber) {
    render_options options;
    options.urls = {"about:blank"};
    options.format.width = 1280;
    options.format.height = 720;
    options.output.path = "a\"b.png";
    EXPECT_EQ(
        json_report(options, some_result()),
        "{\"painted\":98,\"repeated\":3,\"dropped\":1,\"unchanged\":0,\"missed\":2,\"frames\":100,"
        "\"first_frame_ms\":512.0,\"seconds\":2.0,\"width\":1280,\"height\":720,"
        "\"fps\":50.0,\"painted_fps\":49.0,\"interval_p50_ms\":0.0,\"interval_p99_ms\":0.0,"
        "\"pages\":1,\"output\":\"a\\\"b.png\"}");
}

TEST(RenderReport, AFailureIsInItAndWhatNeverCameIsNull) {
    render_options options;
    render_result result;
    result.failure = "the page\nfailed";
    const auto text = json_report(options, result);
    EXPECT_NE(text.find("\"first_frame_ms\":null"), std::string::npos) << text;
    EXPECT_NE(text.find("\"failure\":\"the page\\nfailed\""), std::string::npos) << text;
    EXPECT_EQ(text.find('\n'), std::string::npos);
}

TEST(RenderReport, TellsPeopleWhatCameOut) {
    render_options options;
    options.output.kind = output_kind::png;
    options.output.path = "a.png";
    render_result one;
    one.counts.frames = one.counts.painted = 1;
    one.counts.counted = 20ms;
    one.missed = 1;
    EXPECT_EQ(summary_lines(options, one).at(0),
              "a.png: 1 frame, 0.02 s, 50.00 pictures a second of 50.00; 0 frames the same as the "
              "one before; the page missed 1 tick");
    EXPECT_EQ(summary_lines(options, some_result()).at(1),
              "dropped 1 picture, since writing could not keep up: a smaller --size or a lower "
              "--fps helps");
}

TEST(RenderReport, DroppedPicturesAreExplained) {
    render_options options;
    options.output.kind = output_kind::mov;
    options.output.path = "a.mov";
    EXPECT_EQ(summary_lines(options, some_result()).size(), 2u);
    auto result = some_result();
    result.counts.dropped = 0;
    EXPECT_EQ(summary_lines(options, result).size(), 1u);
    EXPECT_TRUE(summary_lines(options, render_result()).empty());
}

TEST(RenderReport, AfterAFailureNothingReadsAsIfAllWereWell) {
    auto result = some_result();
    result.failure = "a.mov is not whole";
    EXPECT_TRUE(summary_lines(render_options(), result).empty());
}

}  // namespace
}  // namespace pennywort::host
