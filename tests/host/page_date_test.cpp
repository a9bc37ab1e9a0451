// tests/host/page_date_test.cpp - the days that a page may begin on.
#include "host/render/page_date.h"

#include <gtest/gtest.h>

#include <ctime>
#include <ostream>
#include <string>

namespace pennywort::host {
namespace {

struct date_case {
    const char* name;
    const char* text;
    double seconds;  // since 1970; 0: it is none
};
void PrintTo(const date_case& c, std::ostream* out) { *out << c.name; }

constexpr date_case k_dates[] = {
    {"Seconds", "@1795372200", 1795372200},
    {"SecondsWithPoint", "@1795372200.25", 1795372200.25},
    {"InGreenwich", "2026-11-22T18:30:00Z", 1795372200},
    {"ABlankForTheT", "2026-11-22 18:30:00Z", 1795372200},
    {"WithoutSeconds", "2026-11-22T18:30Z", 1795372200},
    {"WithParts", "2026-11-22T18:30:00.125Z", 1795372200.125},
    {"East", "2026-11-22T19:30+01:00", 1795372200},
    {"WestWithoutColon", "2026-11-22T13:00:00-0530", 1795372200},
    {"LeapDay", "2028-02-29T00:00Z", 1835395200},
    {"TheLastOne", "9999-12-31T23:59:59Z", 253402300799},
    {"TheFirstOne", "1970-01-02T00:00Z", 86400},
    {"TooEarly", "1970-01-01T23:59:59Z", 0},
    {"Empty", "", 0},
    {"NoNumber", "@", 0},
    {"NotFinite", "@inf", 0},
    {"Word", "tomorrow", 0},
    {"NoLeapDay", "2027-02-29T00:00Z", 0},
    {"Month13", "2026-13-01T00:00Z", 0},
    {"ShortMonth", "2026-1-01T00:00Z", 0},
    {"Signed", "2026-+1-01T00:00Z", 0},
    {"Hour24", "2026-11-22T24:00Z", 0},
    {"HalfATime", "2026-11-22T18Z", 0},
    {"PointWithoutDigits", "2026-11-22T18:30:00.Z", 0},
    {"ZoneOfADay", "2026-11-22Z", 0},
    {"HalfAZone", "2026-11-22T18:30+1", 0},
    {"More", "2026-11-22T18:30Z.", 0},
    {"FiveDigits", "12026-11-22T18:30Z", 0},
};

class PageDate : public testing::TestWithParam<date_case> {};

TEST_P(PageDate, IsReadAsItStands) {
    const auto read = page_date(GetParam().text);
    EXPECT_EQ(read.has_value(), GetParam().seconds != 0);
    EXPECT_DOUBLE_EQ(read.value_or(0), GetParam().seconds);
}

INSTANTIATE_TEST_SUITE_P(All, PageDate, testing::ValuesIn(k_dates),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(PageDate, WithoutAZoneItIsThisMachines) {
    for (const char* text : {"2026-07-01T12:00", "2026-12-01T12:00:00"}) {
        const auto read = page_date(text);
        ASSERT_TRUE(read);
        const auto at = static_cast<std::time_t>(*read);
        const std::tm* const local = std::localtime(&at);
        EXPECT_EQ(local->tm_hour, 12) << text;
        EXPECT_EQ(local->tm_mday, 1);
    }
    const auto day = page_date("2026-11-22");
    const auto midnight = page_date("2026-11-22T00:00:00");
    ASSERT_TRUE(day && midnight);
    EXPECT_EQ(*day, *midnight);
}

}  // namespace
}  // namespace pennywort::host
