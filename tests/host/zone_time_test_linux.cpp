// tests/host/zone_time_test_linux.cpp - days in zones by their names.
#include "host/system/zone_time.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ostream>
#include <string>

#include "host/render/page_date.h"

namespace pennywort::host {
namespace {

struct zone_case {
    const char* name;
    const char* zone;
    const char* date;
    const char* in_greenwich;
};
void PrintTo(const zone_case& c, std::ostream* out) { *out << c.name; }

constexpr zone_case k_zones[] = {
    {"InWinter", "Europe/Oslo", "2026-12-24T18:00", "2026-12-24T17:00Z"},
    {"InSummer", "Europe/Oslo", "2026-07-01T18:00:00.5", "2026-07-01T16:00:00.5Z"},
    {"ADay", "Europe/Oslo", "2026-12-24", "2026-12-23T23:00Z"},
    {"HalfAnHour", "Asia/Kolkata", "2026-12-24T18:00", "2026-12-24T12:30Z"},
    {"West", "America/Argentina/Buenos_Aires", "2026-12-24T18:00", "2026-12-24T21:00Z"},
    {"APlus", "Etc/GMT+5", "2026-12-24T18:00", "2026-12-24T23:00Z"},
    {"AnotherZoneBehindIt", "Europe/Oslo", "2026-12-24T18:00-05:00", "2026-12-24T23:00Z"},
};

class ZoneTime : public testing::TestWithParam<zone_case> {};

TEST_P(ZoneTime, IsTheTimeThere) {
    const auto read = page_date(GetParam().date, GetParam().zone);
    ASSERT_TRUE(read);
    EXPECT_DOUBLE_EQ(*read, *page_date(GetParam().in_greenwich));
}

INSTANTIATE_TEST_SUITE_P(All, ZoneTime, testing::ValuesIn(k_zones),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(ZoneTime, OfWhatIsNoZoneIsNotKnown) {
    for (const char* zone : {"Mars/Phobos", "Europe", "/etc/localtime", "../zoneinfo/Europe/Oslo",
                             "EST5EDT,M3.2.0", "Europe/Oslo ", "<x>3"}) {
        EXPECT_FALSE(page_date("2026-12-24T18:00", zone)) << zone;
    }
}

// This machine's own zone is what it was, whether the user has said it or not.
TEST(ZoneTime, LeavesTheProcessInItsZone) {
    const char* const own = std::getenv("TZ");
    const auto before = page_date("2026-12-24T18:00");
    ASSERT_TRUE(page_date("2026-12-24T18:00", "Asia/Kolkata"));
    EXPECT_EQ(page_date("2026-12-24T18:00"), before);
    EXPECT_EQ(std::getenv("TZ") == nullptr, own == nullptr);

    ::setenv("TZ", "America/Lima", 1);
    ASSERT_TRUE(page_date("2026-12-24T18:00", "Asia/Kolkata"));
    EXPECT_STREQ(std::getenv("TZ"), "America/Lima");
    EXPECT_EQ(page_date("2026-12-24T18:00"), page_date("2026-12-24T23:00Z"));
    ::unsetenv("TZ");
    ::tzset();
}

}  // namespace
}  // namespace pennywort::host
