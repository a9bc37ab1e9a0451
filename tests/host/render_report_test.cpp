// tests/host/render_report_test.cpp - what a run says of its output at the end.
#include "host/render/render_report.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace pennywort::host
