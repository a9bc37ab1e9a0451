// links_test.cpp - what the Linux transports say to proxies, and the texts that they send.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "websocket/link/link_address.h"
#include "websocket/link/proxy_request.h"
#include "websocket/link/valid_text.h"

namespace pennywort::websocket {
namespace {

link_request tunnel_to(const std::string& host) {
    link_request asked;
    asked.host = host;
    asked.port = 81;
    asked.user_agent = "agent";
    asked.proxy = link_proxy{"proxy", 3128, "me:secret"};
    return asked;
}

proxy_exchange::state answer(proxy_exchange& exchange, std::string_view bytes) {
    std::copy(bytes.begin(), bytes.end(), exchange.received.begin());
    return exchange.take(bytes.size());
}

TEST(ProxyExchange, AsksForATunnel) {
    EXPECT_EQ(proxy_exchange(tunnel_to("::1")).request,
              "CONNECT [::1]:81 HTTP/1.1\r\nHost: [::1]:81\r\nUser-Agent: agent\r\n"
              "Proxy-Authorization: Basic bWU6c2VjcmV0\r\n\r\n");
}

TEST(ProxyExchange, GivesTheSameAnswerAtEverySplit) {
    const std::string yes = "HTTP/1.1 200 Fine\r\nA: b\r\n\r\n";
    for (std::size_t split = 0; split < yes.size(); ++split) {
        proxy_exchange exchange(tunnel_to("host"));
        EXPECT_EQ(answer(exchange, yes.substr(0, split)), proxy_exchange::state::need_more);
        EXPECT_EQ(answer(exchange, yes.substr(split)), proxy_exchange::state::complete) << split;
    }
}

TEST(ProxyExchange, RefusesWhatIsNoTunnel) {
    for (const char* bytes : {"HTTP/1.1 407 No\r\n\r\n", "rubbish\r\n\r\n",
                              "HTTP/1.1 200 Fine\r\n\r\nearly", "HTTP/1.1 302 Away\r\n\r\n"}) {
        proxy_exchange exchange(tunnel_to("host"));
        EXPECT_EQ(answer(exchange, bytes), proxy_exchange::state::refused) << bytes;
        EXPECT_FALSE(exchange.why().empty());
    }
}

TEST(IsOffered, LooksForAnElement) {
    EXPECT_TRUE(is_offered("chat, more", "more"));
    EXPECT_FALSE(is_offered("chat, more", "mor"));
    EXPECT_FALSE(is_offered("", ""));
}

TEST(ValidText, LeavesGoodTextAndReplacesBad) {
    EXPECT_EQ(valid_text(""), "");
    EXPECT_EQ(valid_text("plain ASCII, longer than a word"), "plain ASCII, longer than a word");
    EXPECT_EQ(valid_text("h\xC3\xA4, \xF0\x9F\x98\x80!"), "h\xC3\xA4, \xF0\x9F\x98\x80!");
    EXPECT_EQ(valid_text("12345678\xFF"
                         "9"),
              "12345678\xEF\xBF\xBD"
              "9");
    EXPECT_EQ(valid_text("\xC3"), "\xEF\xBF\xBD");
    EXPECT_EQ(valid_text("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(RequestForUrl, RefusesWhatTheManagedLibraryRefuses) {
    for (const char* url : {"", "host", "http://host/", "ws://host/#part", "ws://", "ws://host:0/",
                            "ws://host:70000/", "ws://user@host/", "ws://a b/"}) {
        EXPECT_THROW(request_for_url(url, {}), std::invalid_argument) << url;
    }
}

TEST(RequestForUrl, TakesTheUrlApart) {
    const link_request request = request_for_url("wss://[::1]:81/a?b", {});
    EXPECT_EQ(request.host, "::1");
    EXPECT_EQ(request.port, 81);
    EXPECT_EQ(request.authority, "[::1]:81");
    EXPECT_EQ(request.target, "/a?b");
    EXPECT_TRUE(request.is_secure);
}

}  // namespace
}  // namespace pennywort::websocket
