// tests/host/texts_test.cpp - what the program prints: reports, progress, summaries; and the last
// line of what another program prints.
#include <gtest/gtest.h>

#include <string>

#include "core/limits.h"
#include "host/render/progress.h"
#include "host/render/render_report.h"
#include "host/system/last_line.h"
#include "tests/support/scratch_file.h"

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

TEST(LastLine, TheFirstOneIsKeptToo) {
    last_line lines;
    EXPECT_EQ(lines.first(), "");
    lines.add("\nUnrecog");
    EXPECT_EQ(lines.first(), "Unrecog");
    lines.add("nized option\nError splitting\n");
    EXPECT_EQ(lines.first(), "Unrecognized option");
    EXPECT_EQ(lines.text(), "Error splitting");
    EXPECT_FALSE(lines.reported());
}

TEST(LastLine, OneThatBreaksOffBeforeItsReasonIsNone) {
    last_line lines;
    lines.add("Could not write header: No space left on device\n");
    lines.add("Error initializing output stream 0:1 -- \n");
    EXPECT_EQ(lines.text(), "Could not write header: No space left on device");
    last_line alone;
    alone.add("Error --\n");
    EXPECT_EQ(alone.text(), "Error --");
}

TEST(LastLine, ReportsAreNoWords) {
    const std::string text =
        "No space left\nframe=11\nfps=0.0\nstream_0_0_q=-1.0\nprogress=continue\n"
        "Error: a=b\nframe=12\nprogress=end\n";
    for (std::size_t split = 0; split <= text.size(); ++split) {
        last_line lines;
        lines.expect_reports("frame");
        lines.add(text.substr(0, split));
        lines.add(text.substr(split));
        EXPECT_EQ(lines.first(), "No space left") << split;
        EXPECT_EQ(lines.text(), "Error: a=b") << split;
        EXPECT_EQ(lines.reported(), 12u) << split;
    }
}

TEST(LastLine, AReportWithoutTheNumberIsNone) {
    last_line lines;
    lines.expect_reports("frame");
    lines.add("hello\n");
    EXPECT_FALSE(lines.reported());
    lines.add("progress=end\n");
    EXPECT_EQ(lines.reported(), 0u);
    EXPECT_EQ(lines.text(), "hello");
}

TEST(LastLine, WithoutReportsEachLineIsOfWords) {
    last_line lines;
    lines.add("frame=12\n");
    EXPECT_EQ(lines.text(), "frame=12");
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
    const tests::scratch_file file;
    progress(file.get(), 0)
        .say("page: \x1b]0;owned\x07 \x1b[31mX\nsecond \xc2\x9b gr\xc3\xbcn \xff");
    EXPECT_EQ(file.text(), "page:  ]0;owned   [31mX second   gr\xc3\xbcn  \n");
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

TEST(Progress, TellsTheRateAndTheTimeThatIsLeft) {
    progress_state state;
    state.total = 1000;
    state.frames = 500;
    state.seconds = 10;
    state.doing = "page 1 of 1";
    const std::pair<double, const char*> k_rates[] = {
        {83.4, "83 a second  6 s left"},
        {500, "500 a second  1 s left"},
        {4, "4 a second  2 min 5 s left"},
        {0.1, "0 a second  1 h 23 min left"},
    };
    for (const auto& [rate, text] : k_rates) {
        state.rate = rate;
        EXPECT_EQ(progress_line(state),
                  "page 1 of 1  500/1000 frames  10.0 s  " + std::string(text) + "  50 %");
    }
    state.rate = 50;
    state.frames = 1000;
    EXPECT_EQ(progress_line(state), "page 1 of 1  1000/1000 frames  10.0 s  50 a second  100 %");
}

TEST(Progress, ThePaceIsThatOfTheLastSeconds) {
    frame_pace pace;
    const frame_pace::time_point start{};
    pace.saw(10, start);
    EXPECT_EQ(pace.per_second(), 0) << "nothing is known yet";
    pace.saw(20, start + 400ms);
    EXPECT_EQ(pace.per_second(), 0);
    pace.saw(60, start + 1s);
    EXPECT_DOUBLE_EQ(pace.per_second(), 50);
    for (int s = 2; s <= 30; ++s) pace.saw(60 + 10u * static_cast<unsigned>(s), start + s * 1s);
    EXPECT_DOUBLE_EQ(pace.per_second(), 10) << "the fast beginning is forgotten";
}

// What `progress` prints where there is no terminal.
class ProgressLines : public testing::Test {
protected:
    std::string lines() const { return m_file.text(); }

    const tests::scratch_file m_file;
};

TEST_F(ProgressLines, APageThatHangsIsToldOnce) {
    progress shown(m_file.get(), 0);
    progress_state state;
    state.total = 100;
    state.doing = "loading page 1 of 1";
    for (int s = 0; s < 30; ++s) shown.show(state, progress::time_point{} + 1h + s * 1s);
    EXPECT_EQ(lines(),
              "loading page 1 of 1\n"
              "loading page 1 of 1  (nothing new for 5 s, still waiting)\n");
}

TEST_F(ProgressLines, APageThatGoesOnIsToldAgain) {
    progress shown(m_file.get(), 0);
    progress_state state;
    state.total = 100;
    state.doing = "page 1 of 1";
    const auto at = progress::time_point{} + 1h;
    for (int s = 0; s < 3; ++s) {
        state.frames = 10u * static_cast<unsigned>(s);
        shown.show(state, at + s * 1s);
    }
    for (int s = 3; s < 12; ++s) shown.show(state, at + s * 1s);
    EXPECT_EQ(lines(),
              "page 1 of 1  10/100 frames  0.0 s  10 %\n"
              "page 1 of 1  20/100 frames  0.0 s  10 a second  8 s left  20 %\n"
              "page 1 of 1  20/100 frames  0.0 s  20 %  (nothing new for 5 s, still waiting)\n");
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

TEST(Progress, OfAPageThatRunsUpToItsFilmHasBothTimes) {
    EXPECT_EQ(run_up_text(0, 1000, 50), "  0.0 of 20.0 s");
    EXPECT_EQ(run_up_text(150, 1000, 50), "  3.0 of 20.0 s");
    EXPECT_EQ(run_up_text(60, 300, 60000.0 / 1001), "  1.0 of 5.0 s");
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
        "\"page_errors\":0,\"failed_resources\":0,\"console_errors\":0,"
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
    options.output.kind = output_kind::mov;
    options.output.path = "a.mov";
    render_result one;
    one.counts.frames = one.counts.painted = 1;
    one.counts.counted = 20ms;
    one.missed = 1;
    EXPECT_EQ(summary_lines(options, one).at(0),
              "a.mov: 1 frame, 0.02 s, 50.00 pictures a second of 50.00; 0 frames the same as the "
              "one before; the page missed 1 tick");
    EXPECT_EQ(summary_lines(options, some_result()).at(1),
              "dropped 1 picture, since writing could not keep up: a smaller --size or a lower "
              "--fps helps");
    options.format.is_interlaced = true;
    one.counts.frames = 5;
    EXPECT_NE(
        summary_lines(options, one).at(0).find("a.mov: 5 frames of the page, 3 of the film, "),
        std::string::npos);
}

TEST(RenderReport, OfOnePictureOnlySaysWhichOneItIs) {
    render_options options;
    options.output.kind = output_kind::png;
    options.output.path = "a.png";
    options.format.width = 64;
    options.format.height = 48;
    options.clock = page_clock::own;
    render_result one;
    one.counts.frames = 1;
    EXPECT_EQ(summary_lines(options, one),
              std::vector<std::string>{"a.png: 64x48, the page at 0.000 s of its time"});
    options.first_frame = 100;
    one.counts.frames = 26;
    one.width = 30;
    one.height = 20;
    EXPECT_EQ(summary_lines(options, one).at(0), "a.png: 30x20, the page at 2.500 s of its time");
    options.clock = page_clock::host;
    EXPECT_EQ(summary_lines(options, one).at(0), "a.png: 30x20, the last of 26 frames");
    one.counts.frames = 1;
    EXPECT_EQ(summary_lines(options, one), std::vector<std::string>{"a.png: 30x20"});
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
