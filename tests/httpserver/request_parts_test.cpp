// request_parts_test.cpp - the pure pieces: paths, types and the strict opinion on a head.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "httpserver.h"
#include "httpserver/request_progress.h"
#include "httpserver/url_path.h"

namespace pennywort::httpserver {
namespace {

TEST(PathNames, RefuseWhatCouldLeadElsewhere) {
    for (const char* path :
         {"/..",      "/../a",          "/a/../b", "/.",    "/a/./b",    "/%2e%2e/a", "/.%2E/a",
          "/..%2fa",  "/a%2fb",         "/a%5cb",  "/a\\b", "/..\\a",    "/%00",      "/a%00.html",
          "/.hidden", "/a/.git/config", "/c:",     "/c:/a", "/a:stream", "/a.",       "/a%20",
          "/a%0a",    "/a%7f",          "/%"}) {
        EXPECT_FALSE(path_names(path)) << path;
    }
}

TEST(PathNames, RefuseTheDevicesOfWindows) {
    for (const char* path :
         {"/con", "/NUL", "/a/aux/b", "/prn.html", "/com1", "/COM9.txt", "/lpt0", "/nul.tar.gz",
          "/con .txt", "/c%6fn", "/conin$", "/CONOUT$.x", "/com%c2%b9", "/lpt%c2%b3.txt"}) {
        EXPECT_FALSE(path_names(path)) << path;
    }
    for (const char* path : {"/cons", "/com", "/com10", "/comx", "/a.con", "/lpt%c2%b4", "/acon",
                             "/com1x.txt", "/com%c2"}) {
        EXPECT_TRUE(path_names(path)) << path;
    }
}

TEST(PathNames, AreWhatStandsBetweenTheSlashes) {
    using names = std::vector<std::string>;
    EXPECT_EQ(path_names(""), names());
    EXPECT_EQ(path_names("/"), names());
    EXPECT_EQ(path_names("/a/b.html"), (names{"a", "b.html"}));
    EXPECT_EQ(path_names("//a///b/"), (names{"a", "b"}));
    EXPECT_EQ(path_names("/%41%20b"), (names{"A b"}));
    EXPECT_EQ(path_names("/gr%C3%BCn"), (names{"gr\xc3\xbcn"}));
    EXPECT_EQ(path_names("/a..b"), (names{"a..b"}));
}

TEST(ContentType, GoesByTheEndingInAnyCase) {
    EXPECT_STREQ(cHttpFolderHandler::ContentTypeOf("html"), "text/html; charset=utf-8");
    EXPECT_STREQ(cHttpFolderHandler::ContentTypeOf("JpG"), "image/jpeg");
    EXPECT_STREQ(cHttpFolderHandler::ContentTypeOf("js"), "text/javascript; charset=utf-8");
    for (const char* unknown : {"", "htmlx", "htm ", "exe"}) {
        EXPECT_STREQ(cHttpFolderHandler::ContentTypeOf(unknown), "application/octet-stream");
    }
    EXPECT_STREQ(cHttpFolderHandler::ContentTypeOf(nullptr), "application/octet-stream");
}

TEST(RequestProgress, GivesTheSameAnswerAtEverySplit) {
    const std::string request =
        "POST /a HTTP/1.1\r\nHost: b\r\nContent-Length: 10\r\n\r\n0123456789";
    for (std::size_t split = 0; split < request.size(); ++split) {
        request_progress progress;
        EXPECT_FALSE(progress.look(request.substr(0, split))) << split;
        EXPECT_TRUE(progress.look(request)) << split;
        EXPECT_EQ(progress.content_length(), 10) << split;
        EXPECT_EQ(progress.body_offset(), request.size() - 10) << split;
    }
}

struct length_case {
    const char* name;
    std::string_view request;
    std::int32_t want;
};
void PrintTo(const length_case& c, std::ostream* out) { *out << c.name; }

const length_case k_lengths[] = {
    {"None", "POST / HTTP/1.1\r\n\r\n", 0},
    {"AnyLetters", "POST / HTTP/1.1\r\ncONTENT-lENGTH:2\r\n\r\n", 2},
    {"InALongerName", "POST / HTTP/1.1\r\nX-Content-Length: 2\r\n\r\n", 2},
    {"InTheRequestLine", "POST /?Content-Length:2 HTTP/1.1\r\n\r\n", 2},
    {"InTheBody", "POST / HTTP/1.1\r\n\r\nContent-Length: 2", 2},
    {"ABlankBeforeTheColon", "POST / HTTP/1.1\r\nContent-Length : 2\r\n\r\n", 0},
    {"TheFirstOfTwo", "POST / HTTP/1.1\r\nContent-Length: 2\r\nContent-Length: 3\r\n\r\n", 2},
    {"TheFirstThoughItIsNone", "POST / HTTP/1.1\r\nContent-Length: x\r\nContent-Length: 3\r\n\r\n",
     0},
    {"EveryWhiteSpace", "POST / HTTP/1.1\r\nContent-Length: \t\v\f\r\n 2\r\n\r\n", 2},
    {"BehindTheBlankLine", "POST / HTTP/1.1\r\nContent-Length:\r\n\r\n99", 99},
    {"Plus", "POST / HTTP/1.1\r\nContent-Length: +2\r\n\r\n", 2},
    {"Minus", "POST / HTTP/1.1\r\nContent-Length: -2\r\n\r\n", -2},
    {"OnlyASign", "POST / HTTP/1.1\r\nContent-Length: -\r\n\r\n", 0},
    {"ABlankBehindTheSign", "POST / HTTP/1.1\r\nContent-Length: + 2\r\n\r\n", 0},
    {"TwoSigns", "POST / HTTP/1.1\r\nContent-Length: +-2\r\n\r\n", 0},
    {"LeadingZeros", "POST / HTTP/1.1\r\nContent-Length: 0010\r\n\r\n", 10},
    {"DecimalOnly", "POST / HTTP/1.1\r\nContent-Length: 0x10\r\n\r\n", 0},
    {"TheLargest", "POST / HTTP/1.1\r\nContent-Length: 2147483647\r\n\r\n", 2147483647},
};

class LengthTest : public testing::TestWithParam<length_case> {};

TEST_P(LengthTest, IsTheNumberBehindTheFirstOfItsNames) {
    request_progress progress;
    progress.look(GetParam().request);
    EXPECT_EQ(progress.content_length(), GetParam().want);
}

INSTANTIATE_TEST_SUITE_P(All, LengthTest, testing::ValuesIn(k_lengths),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(RequestProgress, BeginsAnewAfterAReset) {
    request_progress progress;
    EXPECT_FALSE(progress.look("DELETE /"));
    EXPECT_TRUE(progress.is_hopeless());
    progress.reset();
    EXPECT_TRUE(progress.look("GET /\r\n\r\n"));
    EXPECT_FALSE(progress.is_hopeless());
}

}  // namespace
}  // namespace pennywort::httpserver
