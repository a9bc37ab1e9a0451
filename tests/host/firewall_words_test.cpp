// tests/host/firewall_words_test.cpp - what the program says of the firewall, and how it ends.
#include "host/firewall/firewall_words.h"

#include <gtest/gtest.h>

#include "host/app/command_line.h"

namespace pennywort::host {
namespace {

constexpr auto k_any = cFirewallFamily::Any;
constexpr auto k_ip4 = cFirewallFamily::IPv4;
constexpr auto k_ip6 = cFirewallFamily::IPv6;

const port_report k_open{8080, cFirewallAnswer::Open, "", k_any, k_any};
const port_report k_blocked{8080, cFirewallAnswer::Blocked, "chain c of table inet t drops \"it\"",
                            k_any, k_any};
const port_report k_unknown{8080, cFirewallAnswer::Unknown, "no right", k_any, k_any};
const port_report k_half{8080, cFirewallAnswer::Open, "chain c drops it", k_any, k_ip4};

TEST(FirewallWords, SayWhatIsKnown) {
    EXPECT_EQ(words_for(k_open), "port 8080 is not blocked");
    EXPECT_EQ(words_for(k_blocked), "port 8080 is blocked: chain c of table inet t drops \"it\"");
    EXPECT_EQ(words_for(k_unknown), "it cannot be told whether port 8080 is blocked: no right");
}

TEST(FirewallWords, NameTheProtocolThatIsBlocked) {
    EXPECT_EQ(words_for(k_half),
              "port 8080 is not blocked over IPv6, but over IPv4 it is: chain c drops it");
    EXPECT_EQ(json_line(k_half),
              R"({"port":8080,"state":"open","why":"chain c drops it","blocked_over":"IPv4"})");
    EXPECT_EQ(exit_status_of(k_half), 0);
}

TEST(FirewallWords, NameTheProtocolThatWasAskedFor) {
    const auto words = [](cFirewallAnswer answer, cFirewallFamily family) {
        return words_for({8080, answer, "x", family, k_any});
    };
    EXPECT_EQ(words(cFirewallAnswer::Open, k_ip4), "port 8080 is not blocked over IPv4");
    EXPECT_EQ(words(cFirewallAnswer::Blocked, k_ip6), "port 8080 is blocked over IPv6: x");
    EXPECT_EQ(words(cFirewallAnswer::Unknown, k_ip4),
              "it cannot be told whether port 8080 is blocked over IPv4: x");
}

TEST(FirewallWords, AnAddressHasTheProtocolsThatReachIt) {
    EXPECT_EQ(family_of("0.0.0.0"), k_ip4);
    EXPECT_EQ(family_of("192.168.1.5"), k_ip4);
    EXPECT_EQ(family_of("fd09::1"), k_ip6);
    EXPECT_EQ(family_of("::"), k_any);
    EXPECT_EQ(family_of("0:0:0:0:0:0:0:0"), k_any);
}

TEST(FirewallWords, AreJsonOnRequest) {
    EXPECT_EQ(json_line(k_open), R"({"port":8080,"state":"open","why":""})");
    EXPECT_EQ(json_line(k_blocked),
              R"({"port":8080,"state":"blocked","why":"chain c of table inet t drops \"it\""})");
    EXPECT_EQ(json_line(k_unknown), R"({"port":8080,"state":"unknown","why":"no right"})");
}

TEST(FirewallWords, HaveAnExitStatusEach) {
    EXPECT_EQ(exit_status_of(k_open), 0);
    EXPECT_EQ(exit_status_of(k_blocked), 3);
    EXPECT_EQ(exit_status_of(k_unknown), 1);
}

TEST(FirewallWords, WarnWhereOthersAreMeantToComeIn) {
    const std::string warning =
        "others cannot come in: port 8080 is blocked: chain c of table inet t drops \"it\"";
    EXPECT_EQ(listening_warning("0.0.0.0", k_blocked), warning);
    EXPECT_EQ(listening_warning("192.168.1.5", k_blocked), warning);
    EXPECT_EQ(listening_warning("::", k_blocked), warning);
    EXPECT_EQ(
        listening_warning("::", k_half),
        "not all others can come in: port 8080 is not blocked over IPv6, but over IPv4 it is: "
        "chain c drops it");
    EXPECT_EQ(listening_warning("127.0.0.1", k_blocked), "");
    EXPECT_EQ(listening_warning("::1", k_blocked), "");
    EXPECT_EQ(listening_warning("0.0.0.0", k_open), "");
    EXPECT_EQ(listening_warning("0.0.0.0", k_unknown), "");
}

TEST(FirewallWords, AskAboutTheRightPort) {
    const port_report report = ask_about_port(8080, k_ip6);
    EXPECT_EQ(report.port, 8080);
    EXPECT_EQ(report.family, k_ip6);
}

struct words_case {
    const char* port;
    const char* words;
};
constexpr words_case k_refused_words[] = {
    {"0", "0 is not a port from 1 to 65535"},
    {"65536", "65536 is not a port from 1 to 65535"},
    {"http", "http is not a port from 1 to 65535"},
    {"80x", "80x is not a port from 1 to 65535"},
};

TEST(FirewallCommand, RefusesWhatIsNoPort) {
    for (const words_case& c : k_refused_words) {
        const command_line line = parse_command_line({"firewall", c.port});
        EXPECT_EQ(line.what, command_line::verdict::refuse);
        EXPECT_EQ(line.text, c.words);
    }
    EXPECT_EQ(parse_command_line({"firewall"}).what, command_line::verdict::refuse);
    EXPECT_EQ(parse_command_line({"firewall", "65535", "--json"}).what, command_line::verdict::run);
    EXPECT_EQ(parse_command_line({"firewall", "80", "--ipv4"}).what, command_line::verdict::run);
    EXPECT_EQ(parse_command_line({"firewall", "80", "--ipv4", "--ipv6"}).what,
              command_line::verdict::refuse);
}

}  // namespace
}  // namespace pennywort::host
