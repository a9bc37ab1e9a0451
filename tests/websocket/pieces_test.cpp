// pieces_test.cpp - the parts that need no connection: URLs, texts, lives, proxies.
#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>

#include "core/limits.h"
#include "tests/websocket/sha1.h"
#include "websocket/managed/socket_life.h"
#include "websocket/message_text.h"
#include "websocket/transport_options.h"
#include "websocket/url_parts.h"

namespace pennywort::websocket {
namespace {

struct url_case {
    const char* name;
    std::string_view url;
    std::string_view host;
    std::int32_t port_to_use;
    std::string_view path;
    bool is_secure;
};
void PrintTo(const url_case& c, std::ostream* out) { *out << c.name; }

constexpr url_case k_urls[] = {
    {"Plain", "ws://host/x", "host", 80, "/x", false},
    {"Secure", "wss://host/x", "host", 443, "/x", true},
    {"SecureAsHttps", "https://host", "host", 443, "", true},
    {"Port", "ws://host:8080/x?y=1", "host", 8080, "/x?y=1", false},
    {"SecurePort", "wss://host:9", "host", 9, "", true},
    {"OtherScheme", "ftp://host", "host", 80, "", false},
    {"CapitalsAreNotSecure", "WSS://host", "host", 80, "", false},
    {"PortWithRubbish", "ws://host:81x/y", "host", 81, "/y", false},
    {"PortWithoutDigits", "ws://host:x/y", "host", 80, "/y", false},
    {"NoHost", "ws:///y", "", 80, "/y", false},
    {"QueryWithoutSlash", "ws://host?q", "host?q", 80, "", false},
    {"FirstColon", "ws://[::1]:81/y", "[", 80, "/y", false},
    {"OpenBracket", "ws://[a:81/y", "[a", 81, "/y", false},
    {"NoScheme", "://h", "h", 80, "", false},
};

class UrlPartsTest : public testing::TestWithParam<url_case> {};

TEST_P(UrlPartsTest, AreTakenApart) {
    const url_case& c = GetParam();
    const auto parts = split_url(c.url);
    ASSERT_TRUE(parts);
    EXPECT_EQ(parts->host, c.host);
    EXPECT_EQ(parts->port_to_use(), c.port_to_use);
    EXPECT_EQ(parts->path, c.path);
    EXPECT_EQ(parts->is_secure(), c.is_secure);
}

INSTANTIATE_TEST_SUITE_P(All, UrlPartsTest, testing::ValuesIn(k_urls),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(UrlParts, NeedASchemesEnd) {
    for (const char* url : {"", "ws", "ws:/host", "host/x", "ws//host"}) {
        EXPECT_FALSE(split_url(url)) << url;
    }
}

TEST(UrlParts, AnAddressInBracketsIsAHostWhereItIsTaken) {
    constexpr url_case k_literals[] = {
        {"Port", "ws://[::1]:81/y", "::1", 81, "/y", false},
        {"NoPort", "wss://[2001:db8::1]", "2001:db8::1", 443, "", true},
        {"OpenBracket", "ws://[a:81/y", "[a", 81, "/y", false},
        {"Name", "ws://host:81/y", "host", 81, "/y", false},
    };
    for (const url_case& c : k_literals) {
        const auto parts = split_url_with_ipv6(c.url);
        ASSERT_TRUE(parts) << c.name;
        EXPECT_EQ(parts->host, c.host) << c.name;
        EXPECT_EQ(parts->port_to_use(), c.port_to_use) << c.name;
        EXPECT_EQ(parts->path, c.path) << c.name;
    }
    EXPECT_FALSE(split_url_with_ipv6("[::1]/y"));
}

using text_state = message_text::state;

TEST(MessageText, JoinsFragments) {
    message_text text(100, false);
    EXPECT_EQ(text.take(piece_kind::text_fragment, "ab"), text_state::need_more);
    EXPECT_EQ(text.take(piece_kind::text_fragment, "cd"), text_state::need_more);
    EXPECT_EQ(text.take(piece_kind::text_message, "e"), text_state::complete);
    EXPECT_EQ(text.text(), "abcde");
    EXPECT_EQ(text.take(piece_kind::text_message, "f"), text_state::complete);
    EXPECT_EQ(text.text(), "f");
}

TEST(MessageText, CutsEachPieceAtItsFirstNul) {
    message_text text(100, false);
    EXPECT_EQ(text.take(piece_kind::text_fragment, std::string_view("ab\0c", 4)),
              text_state::need_more);
    EXPECT_EQ(text.take(piece_kind::text_message, std::string_view("d\0e", 3)),
              text_state::complete);
    EXPECT_EQ(text.text(), "abd");
}

TEST(MessageText, PassesOverWhatIsNoText) {
    message_text text(100, false);
    EXPECT_EQ(text.take(piece_kind::binary_message, "b"), text_state::need_more);
    EXPECT_EQ(text.take(piece_kind::binary_fragment, "b"), text_state::need_more);
    EXPECT_EQ(text.take(piece_kind::close, "b"), text_state::need_more);
    EXPECT_EQ(text.take(piece_kind::text_message, ""), text_state::need_more);
    EXPECT_EQ(text.take(piece_kind::text_message, "t"), text_state::complete);
    EXPECT_EQ(text.text(), "t");
}

TEST(MessageText, EndsWithAnEmptyPieceWhereThatIsAskedFor) {
    message_text text(100, true);
    EXPECT_EQ(text.take(piece_kind::text_message, ""), text_state::need_more);
    EXPECT_EQ(text.take(piece_kind::text_fragment, "a"), text_state::need_more);
    EXPECT_EQ(text.take(piece_kind::text_message, ""), text_state::complete);
    EXPECT_EQ(text.text(), "a");
}

TEST(MessageText, HasALongestMessage) {
    message_text text(3, false);
    EXPECT_EQ(text.take(piece_kind::text_message, "abc"), text_state::complete);
    EXPECT_EQ(text.take(piece_kind::text_fragment, "ab"), text_state::need_more);
    EXPECT_EQ(text.take(piece_kind::text_message, "cd"), text_state::too_long);
}

TEST(MessageBytes, KeepsNulsAndItsLength) {
    message_bytes bytes(5);
    EXPECT_EQ(bytes.take(piece_kind::binary_fragment, std::string_view("a\0", 2)),
              text_state::need_more);
    EXPECT_EQ(bytes.take(piece_kind::text_message, "text"), text_state::need_more);
    EXPECT_EQ(bytes.take(piece_kind::binary_message, std::string_view("\0b", 2)),
              text_state::complete);
    EXPECT_EQ(bytes.bytes(), std::string("a\0\0b", 4));
    EXPECT_EQ(bytes.take(piece_kind::binary_message, ""), text_state::complete);
    EXPECT_EQ(bytes.bytes(), "");
    EXPECT_EQ(bytes.take(piece_kind::binary_message, "123456"), text_state::too_long);
}

TEST(MessageText, GivesTheMemoryOfAnUnusuallyLongOneBack) {
    const std::string longer(k_max_kept_message_bytes + 1, 'x');
    message_text text(longer.size(), false);
    message_bytes bytes(longer.size());
    text.take(piece_kind::text_message, longer);
    bytes.take(piece_kind::binary_message, longer);
    EXPECT_GT(text.text().capacity(), k_max_kept_message_bytes);
    text.take(piece_kind::text_message, "short");
    bytes.take(piece_kind::binary_message, "short");
    EXPECT_LE(text.text().capacity(), k_max_kept_message_bytes);
    EXPECT_LE(bytes.bytes().capacity(), k_max_kept_message_bytes);
    EXPECT_EQ(text.text() + bytes.bytes(), "shortshort");
}

using life_state = socket_life::state;
using farewell = socket_life::farewell;

// A life as letters: c connect, o connected, x close, g goodbye with 1001, f failed with 1006.
// What comes of it: O opened, D drop, G say goodbye, and the code of the close with + when clean.
std::string lived(std::string_view inputs) {
    socket_life life;
    std::string told;
    const auto end = [&told](socket_life::ending ending) {
        if (ending.is_told) told += std::to_string(ending.code) + (ending.was_clean ? "+" : "-");
    };
    for (const char input : inputs) {
        if (input == 'c') told += life.connect() ? "c" : "";
        if (input == 'o') told += life.connected() ? "O" : "";
        if (input == 'g') end(life.said_goodbye(1001));
        if (input == 'f') end(life.failed(1006));
        if (input != 'x') continue;
        const farewell asked = life.close();
        if (asked == farewell::drop) told += "D";
        if (asked == farewell::say_goodbye) told += "G";
    }
    return told;
}

struct life_case {
    const char* name;
    const char* inputs;
    const char* told;
};
void PrintTo(const life_case& c, std::ostream* out) { *out << c.name; }

constexpr life_case k_lives[] = {
    {"OpensOnce", "ccoo", "cO"},
    {"NotConnectedBeforeItConnects", "o", ""},
    {"PeerSaysGoodbye", "cog", "cO1001+"},
    {"Lost", "cof", "cO1006-"},
    {"NeverOpened", "cf", "c1006-"},
    {"OwnGoodbye", "coxg", "cOG1005+"},
    {"OwnGoodbyeUnanswered", "coxf", "cOG1005-"},
    {"ClosedTwice", "coxxg", "cOG1005+"},
    {"ClosedWhileConnecting", "cxf", "cD1005-"},
    {"OpenedTooLate", "cxof", "cD1005-"},
    {"ClosedBeforeItConnects", "xcf", "D1005-"},
    {"ToldOnce", "cogfgx", "cO1001+"},
    {"NothingAfterALoss", "cofxg", "cO1006-"},
    {"NoSecondLife", "cofco", "cO1006-"},
};

class SocketLifeTest : public testing::TestWithParam<life_case> {};

TEST_P(SocketLifeTest, TellsWhatItShould) { EXPECT_EQ(lived(GetParam().inputs), GetParam().told); }

INSTANTIATE_TEST_SUITE_P(All, SocketLifeTest, testing::ValuesIn(k_lives),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(SocketLife, IsOpenBetweenConnectedAndTheEnd) {
    socket_life life;
    EXPECT_FALSE(life.is_open());
    life.connect();
    EXPECT_FALSE(life.is_open());
    life.connected();
    EXPECT_TRUE(life.is_open());
    life.close();
    EXPECT_FALSE(life.is_open());
}

TEST(TransportOptions, TakesHeadersThatAreSome) {
    const auto lines = header_lines("A: b\r\nC:d\n\nno header\nE : f\nG: h\x01\nI:");
    EXPECT_EQ(lines, (std::vector<std::string>{"A: b", "C:d", "I:"}));
}

TEST(TransportOptions, LooksAtTheTimeoutWhereAskedTo) {
    cWebSocketOptions options;
    EXPECT_EQ(settings_of(options, 2.5).opening_time.count(), 0);
    options.isTimeoutHonoured = true;
    EXPECT_EQ(settings_of(options, 2.5).opening_time.count(), 2500);
    EXPECT_EQ(settings_of(options, 0).opening_time.count(), 0);
    EXPECT_EQ(settings_of(options, -1).opening_time.count(), 0);
    EXPECT_EQ(settings_of(options, 1e-9).opening_time.count(), 1);
    EXPECT_EQ(settings_of(options, 1e30).opening_time.count(), 3'600'000);
    EXPECT_EQ(settings_of(options, 1).user_agent, "KettlewindWebSocket");
}

TEST(Sha1, OfTheServersOfTheseTestsIsRight) {
    EXPECT_EQ(sha1("abc").substr(0, 4), "\xA9\x99\x3E\x36");
}

}  // namespace
}  // namespace pennywort::websocket
