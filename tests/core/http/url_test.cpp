// url_test.cpp - URLs taken apart, and those that are refused with their reasons.
#include "core/http/url.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>

#include "core/limits.h"

namespace pennywort::http {
namespace {

struct url_case {
    const char* name;
    std::string_view text;
    url_fault fault;
    std::string_view parts;  // scheme|host|port|target|fragment|authority
};
void PrintTo(const url_case& c, std::ostream* out) { *out << c.name; }

using namespace std::string_view_literals;

constexpr url_case k_url_cases[] = {
    {"Plain", "http://host/a/b", url_fault::none, "http|host|80|/a/b||host"},
    {"NoPath", "https://host", url_fault::none, "https|host|443|/||host"},
    {"QueryWithoutPath", "ws://h?a=/b", url_fault::none, "ws|h|80|/?a=/b||h"},
    {"EmptyQuery", "wss://h/?", url_fault::none, "wss|h|443|/?||h"},
    {"Fragment", "http://h/a?b#c?d/e", url_fault::none, "http|h|80|/a?b|c?d/e|h"},
    {"AtInPath", "http://h/a@b:c", url_fault::none, "http|h|80|/a@b:c||h"},
    {"Port", "HTTP://Host:8080/", url_fault::none, "http|Host|8080|/||Host:8080"},
    {"OwnPort", "http://h:80/", url_fault::none, "http|h|80|/||h"},
    {"OtherOnesPort", "http://h:443/", url_fault::none, "http|h|443|/||h:443"},
    {"EmptyPort", "http://h:/", url_fault::none, "http|h|80|/||h"},
    {"Literal", "http://[::1]:81/x", url_fault::none, "http|::1|81|/x||[::1]:81"},
    {"LongLiteral", "http://[2001:DB8:0:0:8:800:200C:417A]", url_fault::none,
     "http|2001:DB8:0:0:8:800:200C:417A|80|/||[2001:DB8:0:0:8:800:200C:417A]"},
    {"MappedLiteral", "http://[::ffff:1.2.3.4]/", url_fault::none,
     "http|::ffff:1.2.3.4|80|/||[::ffff:1.2.3.4]"},
    {"Escapes", "http://h/%20%c3", url_fault::none, "http|h|80|/%20%c3||h"},
    {"Empty", "", url_fault::no_scheme, ""},
    {"NoScheme", "//host/", url_fault::no_scheme, ""},
    {"NoSchemeWithColon", "/a:b", url_fault::no_scheme, ""},
    {"EmptyScheme", "://h/", url_fault::no_scheme, ""},
    {"ForeignScheme", "ftp://h/", url_fault::foreign_scheme, ""},
    {"HostAsScheme", "host:80/a", url_fault::foreign_scheme, ""},
    {"NoSlashes", "http:host", url_fault::no_host, ""},
    {"OneSlash", "http:/host", url_fault::no_host, ""},
    {"NoHost", "http:///a", url_fault::no_host, ""},
    {"NoHostButPort", "http://:80/", url_fault::no_host, ""},
    {"BadHost", "http://a,b/", url_fault::bad_host, ""},
    {"EscapeInHost", "http://a%2eb/", url_fault::bad_host, ""},
    {"LiteralWithoutBrackets", "http://::1/", url_fault::bad_host, ""},
    {"OpenBracket", "http://[::1/", url_fault::bad_literal, ""},
    {"BehindBracket", "http://[::1]x/", url_fault::bad_literal, ""},
    {"EmptyBrackets", "http://[]/", url_fault::bad_literal, ""},
    {"SevenGroups", "http://[1:2:3:4:5:6:7]/", url_fault::bad_literal, ""},
    {"NineGroups", "http://[1:2:3:4:5:6:7:8:9]/", url_fault::bad_literal, ""},
    {"TwoGaps", "http://[1::2::3]/", url_fault::bad_literal, ""},
    {"GapOfNothing", "http://[1:2:3:4::5:6:7:8]/", url_fault::bad_literal, ""},
    {"LongGroup", "http://[::12345]/", url_fault::bad_literal, ""},
    {"Zone", "http://[fe80::1%25eth0]/", url_fault::bad_literal, ""},
    {"NumbersInFront", "http://[1.2.3.4::]/", url_fault::bad_literal, ""},
    {"LargeNumber", "http://[::1.2.3.256]/", url_fault::bad_literal, ""},
    {"EndsInColon", "http://[1:2:3:4:5:6:7:]/", url_fault::bad_literal, ""},
    {"PortZero", "http://h:0/", url_fault::bad_port, ""},
    {"LargePort", "http://h:65536/", url_fault::bad_port, ""},
    {"SignedPort", "http://h:+80/", url_fault::bad_port, ""},
    {"WordAsPort", "http://h:http/", url_fault::bad_port, ""},
    {"TwoPorts", "http://h:1:2/", url_fault::bad_host, ""},
    {"User", "http://user:pass@h/", url_fault::has_user_info, ""},
    {"EmptyUser", "http://@h/", url_fault::has_user_info, ""},
    {"Blank", "http://h/a b", url_fault::bad_byte, ""},
    {"LineEnd", "http://h/\r\nX: y", url_fault::bad_byte, ""},
    {"Nul", "http://h/\0"sv, url_fault::bad_byte, ""},
    {"BeyondAscii", "http://h/\xc3\xa4", url_fault::bad_byte, ""},
    {"Backslash", "http:\\\\h/", url_fault::bad_byte, ""},
    {"HalfEscape", "http://h/%2", url_fault::bad_escape, ""},
    {"NoEscape", "http://h/?%zz", url_fault::bad_escape, ""},
};

class UrlTest : public testing::TestWithParam<url_case> {};

TEST_P(UrlTest, IsTakenApartOrRefused) {
    const url_case& c = GetParam();
    const parsed_url parsed = parse_url(c.text);
    EXPECT_EQ(parsed.fault, c.fault) << words_of(parsed.fault);
    if (!parsed.is_ok()) return;
    const url& u = parsed.value;
    EXPECT_EQ(u.scheme + '|' + u.host + '|' + std::to_string(u.port) + '|' + u.target() + '|' +
                  u.fragment + '|' + u.authority(),
              c.parts);
}

INSTANTIATE_TEST_SUITE_P(All, UrlTest, testing::ValuesIn(k_url_cases),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(Url, MayNameAUserWhereThatIsAllowed) {
    const parsed_url parsed = parse_url("https://a:b@c@host:444/", user_info::allowed);
    ASSERT_TRUE(parsed.is_ok());
    EXPECT_EQ(parsed.value.user_info, "a:b@c");
    EXPECT_EQ(parsed.value.authority(), "host:444");
    EXPECT_TRUE(parsed.value.is_secure());
}

TEST(Url, HasABoundOfItsLength) {
    const std::string front = "http://h/";
    const std::string longest = front + std::string(k_max_url_bytes - front.size(), 'a');
    EXPECT_TRUE(parse_url(longest).is_ok());
    EXPECT_EQ(parse_url(longest + 'a').fault, url_fault::too_long);
}

TEST(Url, AnAuthorityIsANameOrAnAddressAndPerhapsAPort) {
    for (const char* text : {"h", "h:1", "a.b-c_d", "1.2.3.4:80", "[::1]", "[::1]:8", "h:"}) {
        EXPECT_TRUE(is_authority(text)) << text;
    }
    for (const char* text : {"", ":80", "h:x", "a b", "a@b", "a/b", "a?b", "a,b", "[::1", "::1"}) {
        EXPECT_FALSE(is_authority(text)) << text;
    }
}

TEST(Url, HasWordsForEachFault) {
    for (int i = 0; i <= static_cast<int>(url_fault::bad_escape); ++i) {
        EXPECT_FALSE(words_of(static_cast<url_fault>(i)).empty()) << i;
    }
}

}  // namespace
}  // namespace pennywort::http
