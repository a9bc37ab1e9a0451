// http_date_test.cpp - moments as HTTP writes them.
#include "core/http/http_date.h"

#include <gtest/gtest.h>

#include <string>

namespace pennywort::http {
namespace {

constexpr std::int64_t k_moment = 784111777;
constexpr std::int64_t k_now = 1700000000;  // in 2023

TEST(HttpDate, IsWrittenAsTheStandardHasIt) {
    EXPECT_EQ(date_text(k_moment), "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(date_text(0), "Thu, 01 Jan 1970 00:00:00 GMT");
    EXPECT_EQ(date_text(-1), "Thu, 01 Jan 1970 00:00:00 GMT");
    EXPECT_EQ(date_text(951826740), "Tue, 29 Feb 2000 12:19:00 GMT");
}

TEST(HttpDate, IsReadInAllThreeForms) {
    for (const char* text : {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT",
                             "Sun Nov  6 08:49:37 1994"}) {
        EXPECT_EQ(date_from(text, k_now), k_moment) << text;
    }
}

TEST(HttpDate, ReadsBackWhatItWrites) {
    for (std::int64_t seconds = 0; seconds < 4'000'000'000; seconds += 86400 * 11 + 3607) {
        ASSERT_EQ(date_from(date_text(seconds), k_now), seconds);
    }
}

TEST(HttpDate, AYearOfTwoDigitsIsNotFarAhead) {
    EXPECT_EQ(date_from("Friday, 01-Jan-70 00:00:00 GMT", k_now), 3155760000);
    EXPECT_EQ(date_from("Friday, 01-Jan-74 00:00:00 GMT", k_now), 126230400);
}

TEST(HttpDate, NothingElseIsOne) {
    for (const char* text :
         {"", "Sun, 06 Nov 1994 08:49:37", "Sun, 06 Nov 1994 08:49:37 UTC",
          "Sun, 6 Nov 1994 08:49:37 GMT", "Xyz, 06 Nov 1994 08:49:37 GMT",
          "Sun, 06 Nov 1994 24:00:00 GMT", "Sun, 31 Feb 1994 08:49:37 GMT",
          "Sun, 06 Nov 1994 08:49:37 GMT ", "06 Nov 1994 08:49:37 GMT",
          "Sun, 06 Nov 1994 08.49.37 GMT", "Sun, 06-Nov-94 08:49:37 GMT",
          "Sun Nov  6 08:49:37 94x4", "Sun, +6 Nov 1994 08:49:37 GMT", "784111777"}) {
        EXPECT_EQ(date_from(text, k_now), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace pennywort::http
