// tests/host/frame_rate_test.cpp - reading frame rates, and the times of frames.
#include "host/output/frame_rate.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace pennywort::host {
namespace {

class FrameRateRefusal : public testing::TestWithParam<const char*> {};

TEST_P(FrameRateRefusal, IsNoFrameRate) {
    EXPECT_FALSE(frame_rate::parse(GetParam())) << GetParam();
}

INSTANTIATE_TEST_SUITE_P(All, FrameRateRefusal,
                         testing::Values("", "0", "0.999999", "240.000001", "241", "-50", "+50",
                                         " 50", "50 ", "50fps", "50.", ".5", "5e1", "0x32", "nan",
                                         "inf", "50/0", "0/1", "/1", "50/", "50/1/1", "1/2",
                                         "50.0/1", "60000/-1001", "1.0000001", "9999999/100000",
                                         "99999999999999999999", "50,5"));

struct text_rate_case {
    const char* name;
    const char* text;
    std::int64_t numerator;
    std::int64_t denominator;
    const char* written;
};
void PrintTo(const text_rate_case& c, std::ostream* out) { *out << c.name; }

constexpr text_rate_case k_text_rates[] = {
    {"Whole", "50", 50, 1, "50"},
    {"Lowest", "1", 1, 1, "1"},
    {"Highest", "240", 240, 1, "240"},
    {"Film", "23.976", 24000, 1001, "24000/1001"},
    {"FilmAsSpoken", "23.98", 24000, 1001, "24000/1001"},
    {"Ntsc30", "29.97", 30000, 1001, "30000/1001"},
    {"Ntsc60", "59.94", 60000, 1001, "60000/1001"},
    {"Ntsc120", "119.88", 120000, 1001, "120000/1001"},
    {"Fraction", "60000/1001", 60000, 1001, "60000/1001"},
    {"FractionInLowestTerms", "100/2", 50, 1, "50"},
    {"Decimal", "12.5", 25, 2, "25/2"},
    {"SixDecimals", "1.000001", 1000001, 1000000, "1000001/1000000"},
};

class FrameRateTest : public testing::TestWithParam<text_rate_case> {};

TEST_P(FrameRateTest, IsReadAsAnExactFraction) {
    const auto rate = frame_rate::parse(GetParam().text);
    ASSERT_TRUE(rate);
    EXPECT_EQ(rate->numerator(), GetParam().numerator);
    EXPECT_EQ(rate->denominator(), GetParam().denominator);
    EXPECT_EQ(rate->text(), GetParam().written);
}

INSTANTIATE_TEST_SUITE_P(All, FrameRateTest, testing::ValuesIn(k_text_rates),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(FrameRate, WhatIsWrittenIsReadAsTheSameRateUnlessItsTermsAreTooLong) {
    const auto rate = *frame_rate::parse("59.94");
    EXPECT_EQ(frame_rate::parse(rate.text())->numerator(), 60000);
}

TEST(FrameRate, TimesDoNotDrift) {
    using namespace std::chrono;
    const auto rate = *frame_rate::parse("60000/1001");
    EXPECT_EQ(rate.time_of(0), nanoseconds(0));
    EXPECT_EQ(rate.time_of(1), nanoseconds(16683333));
    EXPECT_EQ(rate.time_of(60000), seconds(1001));
    // Ten years on, still to the nanosecond.
    EXPECT_EQ(rate.time_of(60000ull * 315'000), seconds(1001ll * 315'000));
    EXPECT_EQ(rate.time_of(60000ull * 315'000 + 1),
              seconds(1001ll * 315'000) + nanoseconds(16683333));
}

TEST(FrameRate, TheLargestTermsDoNotOverflow) {
    const auto rate = *frame_rate::parse("239.999999");
    EXPECT_EQ(rate.time_of(239'999'999), std::chrono::seconds(1'000'000));
    EXPECT_EQ(rate.time_of(239'999'999ull * 1000), std::chrono::seconds(1'000'000'000));
}

TEST(FrameRate, ASpanHasTheNearestNumberOfFramesButAtLeastOne) {
    EXPECT_EQ(frame_rate::parse("50")->frames_in(10), 500u);
    EXPECT_EQ(frame_rate::parse("59.94")->frames_in(10), 599u);
    EXPECT_EQ(frame_rate::parse("50")->frames_in(0.03), 2u);
    EXPECT_EQ(frame_rate::parse("50")->frames_in(0.0001), 1u);
}

}  // namespace
}  // namespace pennywort::host
