// tests/host/render_report_test.cpp - what a run says of its output at the end.
#include "host/render/render_report.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace pennywort::host {
namespace {

constexpr output_end k_empty{true, false, false};
constexpr output_end k_empty_and_told{true, false, true};
constexpr output_end k_whole{false, false, false};
constexpr output_end k_cut_short{false, false, true};
constexpr output_end k_endless{false, true, false};

TEST(OutputFault, AFilmOfNothingIsOne) {
    EXPECT_EQ(output_fault(outcome::fine(), k_empty), "the page has painted nothing");
    EXPECT_EQ(output_fault(outcome::failed("full"), k_empty), "full") << "that is the reason";
}

TEST(OutputFault, IsNoneWhereTheUserKnowsWhyThereIsNoFrame) {
    EXPECT_EQ(output_fault(outcome::fine(), k_empty_and_told), "");
    EXPECT_EQ(output_fault(outcome::failed("no head"), k_empty_and_told), "");
}

TEST(OutputFault, IsWhatTheWriterSays) {
    EXPECT_EQ(output_fault(outcome::fine(), k_whole), "");
    EXPECT_EQ(output_fault(outcome::failed("full"), k_whole), "full");
    EXPECT_EQ(output_fault(outcome::failed("full"), k_cut_short), "full");
}

TEST(OutputFault, IsAReaderThatLeavesUnlessOnlyHeEndsTheRun) {
    EXPECT_EQ(output_fault(outcome::reader_closed(), k_endless), "");
    EXPECT_EQ(output_fault(outcome::reader_closed(), k_whole), outcome::reader_closed().text());
    EXPECT_EQ(output_fault(outcome::failed("full"), k_endless), "full");
}

// 100 frames at 50 a second are 2 s of film.
std::string film_summary(std::chrono::milliseconds taken) {
    render_options options;
    options.clock = page_clock::own;
    options.output.path = "a.mkv";
    options.output.kind = output_kind::mkv;
    render_result result;
    result.counts.frames = 100;
    result.counts.repeated = 1;
    result.counts.counted = taken;
    const auto lines = summary_lines(options, result);
    return lines.size() == 1 ? lines[0] : std::to_string(lines.size()) + " lines";
}

TEST(RenderSummary, SaysHowMuchSoonerOrLaterAFilmIsDoneThanItPlays) {
    using namespace std::chrono_literals;
    EXPECT_EQ(film_summary(500ms),
              "a.mkv: 100 frames, each at its moment; 0.50 s for 2.00 s of film, 4.00 times real "
              "time; 1 frame the same as the one before");
    EXPECT_NE(film_summary(8s).find("8.00 s for 2.00 s of film, 0.25 times real time"),
              std::string::npos)
        << film_summary(8s);
    EXPECT_NE(film_summary(0ms).find("0.00 times real time"), std::string::npos)
        << "no time at all is divided by";
}

TEST(RenderSummary, OfAQuietRunHasOnlyWhatIsWrong) {
    render_options options;
    options.is_quiet = true;
    options.output.kind = output_kind::mkv;
    render_result result;
    result.counts.frames = 100;
    EXPECT_TRUE(summary_lines(options, result).empty());
    result.sayings.errors = 1;
    EXPECT_EQ(summary_lines(options, result).size(), 1u);
}

TEST(RenderSummary, NamesTheFillAndItsKey) {
    render_options options;
    options.output.path = "fill.mov";
    options.output.kind = output_kind::mov;
    options.key = options.output;
    options.key->path = "key.mov";
    render_result result;
    result.counts.frames = 100;
    for (const page_clock clock : {page_clock::own, page_clock::host}) {
        options.clock = clock;
        EXPECT_TRUE(summary_lines(options, result)[0].starts_with("fill.mov and key.mov: 100 "));
    }
    options.output.kind = options.key->kind = output_kind::png;
    EXPECT_TRUE(summary_lines(options, result)[0].starts_with("fill.mov and key.mov: "));
}

}  // namespace
}  // namespace pennywort::host
