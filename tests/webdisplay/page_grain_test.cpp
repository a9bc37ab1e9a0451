// page_grain_test.cpp - where a page may have its time 0: tables, no browser.
#include "webdisplay/page_grain.h"

#include <gtest/gtest.h>

#include <limits>

namespace pennywort::webdisplay {
namespace {

using verdict = page_grain::verdict;
constexpr double k_nothing = std::numeric_limits<double>::quiet_NaN();

TEST(PageGrain, TheFirstMomentLiesOnTheStepsBehindTheLead) {
    struct row {
        std::int64_t now, lead, moment;
    };
    for (const row& one : {row{0, 0, 100}, row{0, 98, 100}, row{0, 99, 200}, row{1234, 0, 1300},
                           row{1298, 0, 1300}, row{1299, 0, 1400}, row{5'000'250, 2000, 5'002'300},
                           row{5'000'298, 2000, 5'002'300}, row{5'000'300, 2000, 5'002'400}}) {
        EXPECT_EQ(page_grain::first_moment(one.now, one.lead), one.moment)
            << one.now << " " << one.lead;
    }
}

TEST(PageGrain, ATrialShowsTheStepBeforeAndThenAMomentBeforeTheUnseenFrames) {
    page_grain grain;
    ASSERT_TRUE(grain.begin());
    EXPECT_EQ(grain.stamp(5'002'300), 5'002'200);
    EXPECT_EQ(grain.judge(5002.2), verdict::second_frame);
    EXPECT_EQ(grain.stamp(5'002'300), 5'002'289);
    ASSERT_TRUE(grain.begin());
    EXPECT_EQ(grain.stamp(5'002'400), 5'002'300) << "and another one begins anew";
}

TEST(PageGrain, AMomentFitsWhereThePageHasGoneOverToItByThen) {
    struct row {
        double first, second;
        verdict end;
    };
    for (const row& one :
         {row{5002.2, 5002.3, verdict::fits}, row{5002.2, 5002.2, verdict::next_moment},
          row{5002.2, 5002.4, verdict::fits}, row{5002.3, 5002.2, verdict::next_moment},
          row{5002.2, 5002.2999999, verdict::fits},  // as it comes from the page
          row{5002.2, 5002.2000001, verdict::next_moment}, row{5002.2, k_nothing, verdict::fits}}) {
        page_grain grain;
        ASSERT_TRUE(grain.begin());
        ASSERT_EQ(grain.judge(one.first), verdict::second_frame);
        EXPECT_EQ(grain.judge(one.second), one.end) << one.first << " " << one.second;
    }
}

TEST(PageGrain, APageThatSaysNoTimeCannotBeTried) {
    page_grain grain;
    ASSERT_TRUE(grain.begin());
    EXPECT_EQ(grain.judge(k_nothing), verdict::fits);
}

TEST(PageGrain, NineMomentsAreTriedOfEachPage) {
    page_grain grain;
    for (int page = 0; page < 2; ++page) {
        for (int i = 0; i < 9; ++i) EXPECT_TRUE(grain.begin()) << i;
        EXPECT_FALSE(grain.begin());
        EXPECT_FALSE(grain.begin());
        grain.restart();
    }
    grain.skip();
    EXPECT_FALSE(grain.begin());
}

}  // namespace
}  // namespace pennywort::webdisplay
