// url_string_test.cpp - URLs put together and taken apart.
#include "loam/url_string.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace {

struct url_case {
    const char* name;
    const char* url;
    zStatus status;
    const char* parts;  // scheme|user|host|port|path|fragment
};
void PrintTo(const url_case& c, std::ostream* out) { *out << c.name; }

constexpr url_case k_cases[] = {
    {"Whole", "https://u:p@host:81/a/b?c=d#e", 0, "https|u:p|host|81|a/b?c=d|e"},
    {"NoPath", "http://host", 0, "http||host|0||"},
    {"QueryAlone", "http://host?c", 0, "http||host|0|?c|"},
    {"EmptyQuery", "http://host/?", 0, "http||host|0|?|"},
    {"Literal", "ws://[::1]:9/", 0, "ws||::1|9||"},
    {"EmptyPort", "http://host:/a", 0, "http||host|0|a|"},
    {"ColonInPath", "http://host/a:b@c", 0, "http||host|0|a:b@c|"},
    {"AnyScheme", "rtsp://h/x", 0, "rtsp||h|0|x|"},
    {"BadPort", "http://host:x/", -1, "|||0||"},
    {"LargePort", "http://host:65536/", -1, "|||0||"},
    {"PortZero", "http://host:0/", -1, "|||0||"},
    {"NegativePort", "http://host:-1/", -1, "|||0||"},
    {"PortBeyond32Bits", "http://host:4294967376/", -1, "|||0||"},
    {"LastPort", "http://host:65535/", 0, "http||host|65535||"},
    {"UserAlone", "http://u@host/", 0, "http|u|host|0||"},
    {"LiteralWithUser", "https://u:p@[2001:db8::1]/x", 0, "https|u:p|2001:db8::1|0|x|"},
    {"Blanks", "http://host/a b?c d", 0, "http||host|0|a b?c d|"},
    {"BytesBeyondAscii", "http://host/\xc3\xa9\xff", 0, "http||host|0|\xc3\xa9\xff|"},
    {"NoHost", "http:///a", -1, "|||0||"},
    {"NoScheme", "host/a", -1, "|||0||"},
    {"OpenBracket", "http://[::1/a", -1, "|||0||"},
    {"Empty", "", -1, "|||0||"},
    {"Null", nullptr, -1, "|||0||"},
};

class UrlStringTest : public testing::TestWithParam<url_case> {};

TEST_P(UrlStringTest, IsTakenApart) {
    const url_case& c = GetParam();
    zString scheme("x"), user("x"), host("x"), path("x"), fragment("x");
    std::int32_t port = 7;
    EXPECT_EQ(zURLString::Get(c.url, &scheme, &user, &host, &port, &path, &fragment), c.status);
    const std::string parts = std::string(scheme.CString()) + '|' + user.CString() + '|' +
                              host.CString() + '|' + std::to_string(port) + '|' + path.CString() +
                              '|' + fragment.CString();
    EXPECT_EQ(parts, c.parts);
    EXPECT_EQ(zURLString::Get(c.url, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              c.status);
}

INSTANTIATE_TEST_SUITE_P(All, UrlStringTest, testing::ValuesIn(k_cases),
                         [](const auto& one) { return std::string(one.param.name); });

// Of each part in turn.
TEST(UrlString, MayBeAsLongAsItLikes) {
    const std::string longest(100'000, 'a');
    for (const std::string& url :
         {"http://host/" + longest, "http://" + longest + "/", "http://host/?" + longest,
          "http://host/#" + longest, "http://" + longest + "@host/", longest + "://host/"}) {
        zString host;
        EXPECT_EQ(zURLString::Get(url.c_str(), nullptr, nullptr, &host, nullptr, nullptr, nullptr),
                  0);
        EXPECT_TRUE(host.Length() == 4 || host.Length() == longest.size());
    }
    EXPECT_EQ(zURLString::Get(("http://host:" + longest).c_str(), nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr),
              -1);
}

TEST(UrlString, IsPutTogether) {
    EXPECT_STREQ(zURLString("http", "u", "h:1", "/a").CString(), "http://u@h:1/a");
    EXPECT_STREQ(zURLString("http", nullptr, "h", "a?b").CString(), "http://h/a?b");
    EXPECT_STREQ(zURLString("", "", "h", "").CString(), "h");
    EXPECT_STREQ(zURLString(nullptr, nullptr, nullptr, nullptr).CString(), "");
}

}  // namespace
